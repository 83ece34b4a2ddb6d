SELECT z_x, z_y, z_z FROM element_axes WHERE element = 1;
SELECT node FROM unused_node;
SELECT kind, is_fault, count(*) FROM finding WHERE node IS NOT NULL GROUP BY 1, 2;
SELECT user, user_key, member FROM where_used('property', 2) WHERE user_key < 5;
