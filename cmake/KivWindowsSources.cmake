# kiv_assimp and kiv_meshoptimizer for Windows, as static libraries made from the Debian source packages that
# scripts/windows_sources.sh unpacks. Of assimp only the formats that are read, and only the steps that are asked for;
# what does not belong to them is left out by assimp's own switches.
set(KIV_SOURCES ${PROJECT_SOURCE_DIR}/build/sources CACHE PATH "Unpacked source packages for the Windows build")
foreach(package assimp meshoptimizer)
  if(NOT EXISTS ${KIV_SOURCES}/${package}/.whole)
    message(FATAL_ERROR "${KIV_SOURCES}/${package} is missing: call scripts/windows_sources.sh first")
  endif()
endforeach()

file(GLOB sources ${KIV_SOURCES}/meshoptimizer/src/*.cpp)
add_library(kiv_meshoptimizer STATIC EXCLUDE_FROM_ALL ${sources})
target_include_directories(kiv_meshoptimizer SYSTEM PUBLIC ${KIV_SOURCES}/meshoptimizer/src)
target_compile_options(kiv_meshoptimizer PRIVATE -w -g0)

set(assimp ${KIV_SOURCES}/assimp)
set(formats STL OBJ PLY GLTF GLTF1 GLTF2)
set(steps TRIANGULATE ARMATUREPOPULATE VALIDATEDS) # the last two because the rest does not compile without them
set(folders Common Material PostProcessing AssetLib/STL AssetLib/Obj AssetLib/Ply AssetLib/glTF AssetLib/glTF2)
list(TRANSFORM folders REPLACE "(.+)" "${assimp}/code/\\1/*.cpp" OUTPUT_VARIABLE patterns)
file(GLOB sources ${patterns})
list(FILTER sources EXCLUDE REGEX "Exporter\\.cpp$|/(Assimp|ZipArchiveIOSystem|Compression|Bitmap|Subdivision|StandardShapes)\\.cpp$")

file(STRINGS ${assimp}/code/Common/ImporterRegistry.cpp lines REGEX "ASSIMP_BUILD_NO_.*_IMPORTER")
file(STRINGS ${assimp}/code/Common/PostStepRegistry.cpp more REGEX "ASSIMP_BUILD_NO_.*_PROCESS")
set(definitions ASSIMP_BUILD_NO_EXPORT RAPIDJSON_HAS_STDSTRING=1 RAPIDJSON_NOMEMBERITERATORCLASS)
foreach(line ${lines} ${more})
  string(REGEX MATCH "ASSIMP_BUILD_NO_([A-Z0-9_]+)_(IMPORTER|PROCESS)" switch "${line}")
  if(NOT "${CMAKE_MATCH_1}" IN_LIST formats AND NOT "${CMAKE_MATCH_1}" IN_LIST steps)
    list(APPEND definitions ${switch})
  endif()
endforeach()
list(REMOVE_DUPLICATES definitions)

# What assimp's own build writes.
set(GIT_COMMIT_HASH 0)
set(GIT_BRANCH none)
set(ASSIMP_VERSION_MAJOR 5)
set(ASSIMP_VERSION_MINOR 2)
set(ASSIMP_VERSION_PATCH 5)
set(ASSIMP_PACKAGE_VERSION 0)
configure_file(${assimp}/include/assimp/config.h.in ${CMAKE_BINARY_DIR}/assimp/assimp/config.h)
configure_file(${assimp}/revision.h.in ${CMAKE_BINARY_DIR}/assimp/revision.h)

include(KivHeaderOnly)
kiv_header_only(kiv_utf8cpp utf8cpp/utf8.h)
add_library(kiv_assimp STATIC EXCLUDE_FROM_ALL ${sources})
target_compile_definitions(kiv_assimp PRIVATE ${definitions})
target_include_directories(kiv_assimp SYSTEM PUBLIC ${assimp}/include ${CMAKE_BINARY_DIR}/assimp)
target_include_directories(kiv_assimp SYSTEM PRIVATE ${CMAKE_BINARY_DIR}/headers/kiv_utf8cpp/utf8cpp ${assimp} ${assimp}/code ${assimp}/contrib
  ${assimp}/contrib/rapidjson/include ${assimp}/contrib/pugixml/src)
target_compile_options(kiv_assimp PRIVATE -w -g0 -O1)
