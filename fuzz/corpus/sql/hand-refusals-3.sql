INSERT INTO mesh_set_element(mesh_set, element) VALUES (2, 19);
INSERT INTO mesh_set_element(mesh_set, position, element) VALUES (2, 10, 1);
UPDATE mesh_set_element SET position = 3 WHERE mesh_set = 2 AND position = 1;
DELETE FROM element_measure;
