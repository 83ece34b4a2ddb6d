UPDATE node SET z = z + 0.5 WHERE key > 48;
SELECT name, modified FROM step WHERE number = 2;
DELETE FROM node WHERE key = 1;
SELECT (SELECT count(*) FROM element), (SELECT count(*) FROM mesh_set_element WHERE mesh_set = 3),
  (SELECT removed FROM step WHERE number = 3);
