UPDATE element_node SET node = NULL WHERE element = 1 AND position = 2;
DELETE FROM element_node WHERE element = 2 AND position > 3;
UPDATE element SET type = key + 1 WHERE key > 2;
SELECT * FROM element_measure;
SELECT * FROM element_side WHERE element < 5;
SELECT element, scaled_jacobian FROM element_quality ORDER BY element;
SELECT kind, count(*) FROM finding GROUP BY kind;
