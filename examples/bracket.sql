-- Gives the bracket a material, properties and two struts, as one step:
--   qxdb sql bracket.qxm --write < examples/bracket.sql
BEGIN;
INSERT INTO material(key, name, density) VALUES (1, 'steel', 7.85e-6);
INSERT INTO property(key, name, type, material_key) VALUES (1, 'bracket', 30, 1), (2, 'strut', 11, 1);
UPDATE property SET area = 100 WHERE name = 'strut';
UPDATE element SET property = 1 WHERE type = 9;
INSERT INTO element(key, type, property) VALUES (90001, 2, 2), (90002, 2, 2);
INSERT INTO element_node(element, node) VALUES (90001, 1), (90001, 2), (90002, 3), (90002, 4);
INSERT INTO node(key, x, y, z) VALUES (90001, 12, 3, 4);
INSERT INTO ecrd(key) VALUES (90001);
COMMIT;
