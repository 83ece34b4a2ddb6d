SELECT position, element FROM mesh_set_element WHERE mesh_set = 4;
UPDATE mesh_set_element SET element = 5 WHERE mesh_set = 4 AND element = 3;
INSERT OR IGNORE INTO mesh_set_element(mesh_set, element) VALUES (4, 5);
SELECT count(*), sum(element = 5) FROM mesh_set_element WHERE mesh_set = 4;
INSERT INTO function(key, name) VALUES (1, 'ramp');
INSERT INTO function_fval(function, var, value) VALUES (1, 0, 0), (1, 1, 5), (1, 2, 7);
DELETE FROM function_fval WHERE var = 1;
