SELECT max(number), count(*) FROM step;
BEGIN; DELETE FROM element WHERE key < 20; UPDATE node SET x = 0; ROLLBACK;
SELECT (SELECT count(*) FROM element), (SELECT max(x) FROM node), (SELECT count(*) FROM step);
DELETE FROM mesh_set_element WHERE mesh_set = 4 AND element % 4 = 0;
INSERT INTO mesh_set_element(mesh_set, position, element) VALUES (4, 1, 3);
