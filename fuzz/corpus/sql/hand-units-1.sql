SELECT round(size, 6), shape, round(jacobian, 6) FROM element_quality WHERE element = 1 AND unit = 'cm';
SELECT size FROM element_side WHERE element = 1 AND side = 0 AND unit = 'cm';
SELECT round(volume, 6) FROM property_mass WHERE property = 2 AND unit = 'mm';
SELECT n.x FROM (SELECT 'mm' u UNION ALL SELECT 'cm' UNION ALL SELECT NULL) JOIN node n ON n.unit = u WHERE n.key = 3 ORDER BY 1;
