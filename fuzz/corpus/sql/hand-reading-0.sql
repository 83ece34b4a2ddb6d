SELECT count(*), min(key), max(key), sum(x) FROM node;
SELECT * FROM node WHERE key = 6;
SELECT key FROM node WHERE key IN (3, 3.0, '4', 4.5, NULL, -1, 99, 1e300) ORDER BY key;
SELECT key FROM node WHERE rowid = (SELECT rowid FROM node WHERE key = 9);
