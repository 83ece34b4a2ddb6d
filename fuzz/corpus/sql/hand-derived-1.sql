UPDATE node SET x = 0.5 WHERE key = 1;
DELETE FROM node WHERE key = 28;
SELECT s.name, c.pool, c.key, c.operation, c.members FROM step s JOIN step_change c ON c.step = s.number WHERE c.step IN (2, 3, NULL, 'a') OR c.pool = 'node' AND c.key = 28;
SELECT user, user_key, member FROM where_used('node', 1);
SELECT * FROM pool WHERE name = 'node' OR type_code = 4;
