UPDATE free_face SET side = 1;
UPDATE node SET key = 7 WHERE key = 8;
BEGIN; UPDATE mesh_set SET parent_mset_key = 3 WHERE key = 2; COMMIT;
SELECT count(*), (SELECT count(*) FROM step) FROM node WHERE x + y + z >= 0;
