SELECT property, count(*) FROM element GROUP BY property;
SELECT element, position FROM element_node WHERE node = 22 ORDER BY element;
SELECT e.key FROM element e, property p WHERE p.name = 'steel' AND e.property = p.key AND e.key < 6;
SELECT name, (SELECT count(*) FROM mesh_set_element WHERE mesh_set = key),
  (SELECT count(*) FROM mesh_set_element_all WHERE mesh_set = key)
FROM mesh_set ORDER BY key;
