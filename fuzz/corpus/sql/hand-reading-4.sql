SELECT number, name, inserted, done FROM step;
SELECT pool, operation, count(*) FROM step_change WHERE step = 1 GROUP BY 1, 2;
SELECT name, records FROM pool WHERE records > 20;
SELECT property, elements, round(volume, 9) FROM property_mass;
