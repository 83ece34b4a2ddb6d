SELECT x, flags, unit FROM node WHERE key = 2 AND unit = 'mm';
SELECT count(*) FROM node WHERE x > 1999.5 AND x < 2000.5 AND unit = 'mm';
SELECT count(*) FROM node WHERE x > 1999.5 AND x < 2000.5;
SELECT round(volume, 6), center_x FROM element_measure WHERE element = 1 AND unit = 'mm,ton';
