SELECT * FROM nodes;
SELECT name FROM node;
