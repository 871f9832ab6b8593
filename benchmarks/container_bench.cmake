target_link_libraries(container_bench PRIVATE sqlite3 lmdb leveldb)
