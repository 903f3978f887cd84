find_path(HINNANT_DATE_INCLUDE date/date.h REQUIRED)
kv_add_bench(kv_bench_parse
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/parse_bench.cpp
  LIBS kvdatetime)
target_include_directories(kv_bench_parse PRIVATE ${HINNANT_DATE_INCLUDE})
