SELECT * FROM node WHERE unit = 'furlongs';
UPDATE node SET x = x + 1 WHERE key = 1 AND unit = 'mm';
INSERT INTO node(key, x, y, z, unit) VALUES (100, 25, 0, 0, 'cm');
UPDATE node SET y = 7, unit = 'cm' WHERE key = 100;
SELECT key, x, y FROM node WHERE key IN (1, 100);
