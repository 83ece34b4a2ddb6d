SELECT * FROM element_axes WHERE element IN (1, 8);
SELECT * FROM free_edge;
SELECT kind, element, node FROM finding;
SELECT * FROM property_mass WHERE unit = 'mm g';
SELECT a.element, b.node FROM mesh_set_element_all a, mesh_set_node_all b WHERE a.mesh_set = 2 AND b.mesh_set = 2;
