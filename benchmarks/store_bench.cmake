target_link_libraries(store_bench PRIVATE lmdb)
