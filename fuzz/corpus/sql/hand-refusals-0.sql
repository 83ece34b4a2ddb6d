INSERT INTO node(key, x) VALUES (1, 0);
UPDATE node SET x = 'wide' WHERE key = 1;
UPDATE node SET x = 1e308 * 10 WHERE key = 1;
UPDATE node SET x = NULL WHERE key = 1;
