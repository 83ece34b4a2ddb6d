UPDATE node SET key = -1 WHERE key = 1;
INSERT INTO node(key) VALUES (9223372036854775807);
INSERT INTO node(key) VALUES (1.5);
UPDATE element SET property = 77;
