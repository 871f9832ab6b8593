# kiv_assimp and kiv_meshoptimizer: the libraries for foreign meshes, the system's own, or for a cross build those that
# KivWindowsSources.cmake makes from their source packages.
if(CMAKE_CROSSCOMPILING)
  include(KivWindowsSources)
  return()
endif()
foreach(name assimp meshoptimizer)
  find_package(${name} CONFIG REQUIRED)
  if(NOT TARGET kiv_${name})
    add_library(kiv_${name} INTERFACE)
    target_link_libraries(kiv_${name} INTERFACE ${name}::${name})
  endif()
endforeach()
