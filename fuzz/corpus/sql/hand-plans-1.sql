SELECT * FROM element WHERE property = 1;
SELECT * FROM element_node WHERE node = 5;
SELECT * FROM mesh_set_element WHERE mesh_set = 2;
SELECT * FROM mesh_set_element WHERE element = 2;
