# The handler's requests through the relay; its distance beside Eigen's tree called directly and FCL.
include(KivHeaderOnly)
kiv_header_only(kiv_eigen eigen3/signature_of_eigen3_matrix_library)
target_include_directories(request_bench SYSTEM PRIVATE ${CMAKE_BINARY_DIR}/headers/kiv_eigen/eigen3)
target_link_libraries(request_bench PRIVATE dorclient dorhandler fcl ccd)
target_compile_definitions(request_bench PRIVATE KIV_BENCH_RELAY="$<TARGET_FILE:DorRelay>")
add_dependencies(request_bench DorRelay DorHandler)
