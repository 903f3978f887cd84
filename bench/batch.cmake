kv_add_bench(kv_bench_batch
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/batch_bench.cpp
  LIBS kvdatetime)
