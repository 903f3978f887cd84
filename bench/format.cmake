find_package(ICU REQUIRED COMPONENTS i18n uc)
kv_add_bench(kv_bench_format
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/format_bench.cpp
  LIBS kvdatetime ICU::i18n ICU::uc)
