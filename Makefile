# Set-up and build entry points for a fresh Debian 12 machine.
#   make demo   install what is missing, build, run the demo
#   make test   install, build, run every test (optimised and sanitizer
#               builds), the concurrency test under ThreadSanitizer and
#               each fuzz target for a short smoke run
#   make fuzz   run each fuzz target for FUZZ_SECONDS (default 600)
#   make memcheck  run every test program under Valgrind memcheck
#   make bench  install, build optimised, run the benchmarks beside their peers
#               (and kvdt convert on a file against date -u -f)
#   make faults plant known faults one at a time in the optimised build and
#               show that the tests catch each (long: a rebuild per fault)

PACKAGES := g++ make cmake pkg-config libboost-date-time-dev libboost-dev \
            libgtest-dev libbenchmark-dev liberfa-dev libhowardhinnant-date-dev \
            libicu-dev libfmt-dev libcli11-dev nlohmann-json3-dev python3 \
            pybind11-dev python3-dev python3-numpy python3-pytest python3-erfa \
            python3-setuptools python3-pip python3-venv python3-dask \
            python3-distributed python3-astropy \
            tzdata libclang-rt-14-dev help2man
JOBS     ?= $(shell nproc)
BUILD    ?= build/release
ASAN     ?= build/asan
TSAN     ?= build/tsan
MEMCHECK ?= build/memcheck
FUZZ     ?= build/fuzz
FUZZ_SECONDS ?= 600
FUZZ_SMOKE_SECONDS ?= 20
FUZZERS  := calendar format fxp datetime batch parse
FUZZ_PACKAGES := clang-14 libclang-rt-14-dev

.PHONY: deps demo test test-release test-asan test-tsan bench clean fuzz-deps \
        fuzz-build fuzz fuzz-smoke memcheck faults

deps:
	@missing=""; for p in $(PACKAGES); do \
	  dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    echo "installing:$$missing"; \
	    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	  else echo "missing packages:$$missing (run as root to install)"; exit 1; fi; \
	fi

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release

$(ASAN)/CMakeCache.txt: | deps
	cmake -S . -B $(ASAN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKVDT_SANITIZE=ON -DKVDT_BUILD_BENCH=OFF

# Only what the concurrency test needs is built with ThreadSanitizer.
$(TSAN)/CMakeCache.txt: | deps
	cmake -S . -B $(TSAN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKVDT_TSAN=ON \
	  -DKVDT_BUILD_BENCH=OFF -DKVDT_BUILD_EXAMPLES=OFF -DKVDT_BUILD_TOOLS=OFF

$(MEMCHECK)/CMakeCache.txt: | deps
	cmake -S . -B $(MEMCHECK) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DKVDT_BUILD_BENCH=OFF -DKVDT_BUILD_EXAMPLES=OFF

demo: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS) --target kvdt_demo
	$(BUILD)/examples/kvdt_demo

# The test targets (and so CI) treat every warning as an error.
test-release: deps $(BUILD)/CMakeCache.txt
	cmake $(BUILD) -DKVDT_WERROR=ON
	cmake --build $(BUILD) -j $(JOBS)
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-asan: deps $(ASAN)/CMakeCache.txt
	cmake $(ASAN) -DKVDT_WERROR=ON
	cmake --build $(ASAN) -j $(JOBS)
	cd $(ASAN) && ASAN_OPTIONS=detect_leaks=1:halt_on_error=1 \
	  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS)

test-tsan: deps $(TSAN)/CMakeCache.txt
	cmake $(TSAN) -DKVDT_WERROR=ON
	cmake --build $(TSAN) -j $(JOBS) --target kvdt_concurrency_tests
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
	  $(TSAN)/tests/date_time/kvdt_concurrency_tests --gtest_brief=1

test: test-release test-asan test-tsan fuzz-smoke

# Every test program under Valgrind. KVDT_TEST_REDUCED=1 thins the long
# oracle loops, which would otherwise run for an hour. Valgrind must leave
# the counting operator new of the allocation tests in place
# (nouserintercepts), or it would pair its own delete with our malloc and
# count nothing. Exit code 99 marks a memory error apart from a failed test;
# every program runs, and the failures are named at the end.
memcheck: deps $(MEMCHECK)/CMakeCache.txt
	@dpkg -s valgrind >/dev/null 2>&1 || { apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq valgrind; }
	cmake --build $(MEMCHECK) -j $(JOBS)
	@failed=""; for t in $$(find $(MEMCHECK)/tests -name '*_tests' -type f -perm -u+x | sort); do \
	  echo "== $$t"; KVDT_TEST_REDUCED=1 valgrind --tool=memcheck -q \
	    --soname-synonyms=somalloc=nouserintercepts \
	    --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
	    $$t --gtest_brief=1; rc=$$?; \
	  [ $$rc = 99 ] && failed="$$failed $$t(memcheck)"; \
	  [ $$rc != 0 ] && [ $$rc != 99 ] && failed="$$failed $$t(tests)"; \
	done; [ -z "$$failed" ] || { echo "failed:$$failed"; exit 1; }

bench: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)
	@for b in $(BUILD)/bench/kv_bench_*; do \
	  echo "== $$b"; $$b --benchmark_min_time=0.2 || exit 1; done
	@echo "== bench/kvdt_bench.sh"; bench/kvdt_bench.sh $(BUILD)/tools/kvdt
	@if [ -d $(BUILD)/python ]; then echo "== python/bench/bench_batch.py"; \
	  PYTHONPATH=$(BUILD)/python /usr/bin/python3 python/bench/bench_batch.py; fi

# Plants each fault of tests/fault_check.py, rebuilds and runs ctest, then
# restores the file with git checkout: needs a clean date_time/ and host/.
faults: deps $(BUILD)/CMakeCache.txt
	cmake $(BUILD) -DKVDT_WERROR=ON
	cmake --build $(BUILD) -j $(JOBS)
	python3 tests/fault_check.py --check
	python3 tests/fault_check.py $(BUILD)

# The libFuzzer targets (clang-14), each with its seed corpus in
# fuzz/corpus; a finding stops the run with the input saved beside its log.
fuzz-deps: deps
	@dpkg -s $(FUZZ_PACKAGES) >/dev/null 2>&1 || { apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $(FUZZ_PACKAGES); }

$(FUZZ)/CMakeCache.txt: | fuzz-deps
	cmake -S . -B $(FUZZ) -DCMAKE_CXX_COMPILER=clang++-14 \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKVDT_FUZZ=ON -DKVDT_BUILD_TESTS=OFF \
	  -DKVDT_BUILD_BENCH=OFF -DKVDT_BUILD_EXAMPLES=OFF -DKVDT_BUILD_TOOLS=OFF

fuzz-build: fuzz-deps $(FUZZ)/CMakeCache.txt
	cmake --build $(FUZZ) -j $(JOBS)

run-fuzzers = @for f in $(FUZZERS); do \
	  mkdir -p $(FUZZ)/corpus/$$f; log=$(FUZZ)/$$f.log; \
	  echo "== kvdt_fuzz_$$f, $(1) s"; \
	  $(FUZZ)/fuzz/kvdt_fuzz_$$f -max_total_time=$(1) -print_final_stats=1 \
	    -artifact_prefix=$(FUZZ)/$$f- $(FUZZ)/corpus/$$f fuzz/corpus/$$f \
	    >$$log 2>&1 || { tail -n 60 $$log; exit 1; }; \
	  grep -E 'executed_units|exec_per_sec' $$log; done

fuzz-smoke: fuzz-build
	$(call run-fuzzers,$(FUZZ_SMOKE_SECONDS))

fuzz: fuzz-build
	$(call run-fuzzers,$(FUZZ_SECONDS))

clean:
	rm -rf build
