SELECT count(*), sum(volume), max(dimension) FROM element_measure;
SELECT count(*), min(shape), max(aspect_ratio), count(min_angle) FROM element_quality;
SELECT count(*), sum(size) FROM element_side;
SELECT count(*), sum(normal_x = 1), sum(normal_x = -1) FROM free_face JOIN element_side USING (element, side);
