SELECT group_concat(key) FROM (SELECT key FROM node ORDER BY key LIMIT 4);
SELECT * FROM where_used;
