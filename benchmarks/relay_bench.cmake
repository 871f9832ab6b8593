# Peers of the relay: ZeroMQ, and sockets and shared memory of the system.
target_link_libraries(relay_bench PRIVATE dorclient zmq)
target_compile_definitions(relay_bench PRIVATE KIV_BENCH_RELAY="$<TARGET_FILE:DorRelay>")
add_dependencies(relay_bench DorRelay)
