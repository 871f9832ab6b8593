find_library(KIV_MESHOPTIMIZER meshoptimizer REQUIRED) # libmeshoptimizer-dev
find_library(KIV_DRACO draco REQUIRED)                 # libdraco-dev
target_link_libraries(${name} PRIVATE ${KIV_MESHOPTIMIZER} ${KIV_DRACO})
