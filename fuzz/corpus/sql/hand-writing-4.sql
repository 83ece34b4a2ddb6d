SELECT position, var, value FROM function_fval;
INSERT INTO node(x, y, z) SELECT x, y, z + 100 FROM node WHERE key > 64;
SELECT count(*), max(key) FROM node;
UPDATE node SET key = key + 1 WHERE key >= 60;
