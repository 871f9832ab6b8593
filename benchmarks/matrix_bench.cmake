find_package(Eigen3 REQUIRED NO_MODULE) # libeigen3-dev
target_link_libraries(${name} PRIVATE Eigen3::Eigen)
