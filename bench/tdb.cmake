find_library(ERFA_LIBRARY erfa REQUIRED)
kv_add_bench(kv_bench_tdb
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/tdb_bench.cpp
  LIBS kvdt_sine ${ERFA_LIBRARY})
