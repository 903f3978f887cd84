find_library(ERFA_LIBRARY erfa REQUIRED)
find_path(HINNANT_DATE_INCLUDE date/date.h REQUIRED)
kv_add_bench(kv_bench_calendar
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/calendar_bench.cpp
  LIBS kvdatetime ${ERFA_LIBRARY})
target_include_directories(kv_bench_calendar PRIVATE ${HINNANT_DATE_INCLUDE})
