find_library(ERFA_LIBRARY erfa REQUIRED)
kv_add_bench(kv_bench_leap
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/leap_bench.cpp
  LIBS kvdatetime ${ERFA_LIBRARY})
