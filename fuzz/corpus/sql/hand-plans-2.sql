SELECT q.shape FROM mesh_set_element s JOIN element_quality q ON q.element = s.element WHERE s.mesh_set = 3;
SELECT * FROM mesh_set_element_all WHERE mesh_set = 2;
SELECT * FROM step_change WHERE step = 1;
SELECT * FROM node WHERE abs(x) = 1;
