kv_add_bench(kv_bench_fxp
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/fxp_bench.cpp
  LIBS kvhost_fxp Boost::boost)
