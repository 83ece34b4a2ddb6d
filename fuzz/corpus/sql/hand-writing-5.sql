SELECT group_concat(key) FROM (SELECT key FROM node WHERE key > 57 ORDER BY key);
UPDATE node SET key = key - 1 WHERE key > 60;
