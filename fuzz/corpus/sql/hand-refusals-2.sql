UPDATE mesh_set SET name = printf('%064d', 1) WHERE key = 2;
UPDATE mesh_set SET name = x'00ff' WHERE key = 2;
INSERT INTO element_node(element, node) VALUES (1, 'a');
INSERT INTO mesh_set_element(mesh_set, element) VALUES (99, 1);
