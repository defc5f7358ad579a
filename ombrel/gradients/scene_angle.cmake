# SPDX-License-Identifier: MIT
# The scene angle agent: built on the Sobel agent and the histogram agent, no kernels of its own.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR}/scene_angle.cpp)
ombrel_add_test(scene_angle_tests ${CMAKE_CURRENT_LIST_DIR}/scene_angle_test.cpp)
