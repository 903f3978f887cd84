# Set-up and build entry points for a fresh Debian 12 machine.
#   make demo   install what is missing, build, run the demo
#   make test   install, build, run every test (optimised and sanitizer builds)
#   make bench  install, build optimised, run the benchmarks beside their peers

PACKAGES := g++ make cmake pkg-config libboost-date-time-dev libboost-dev \
            libgtest-dev libbenchmark-dev liberfa-dev libhowardhinnant-date-dev \
            libicu-dev libfmt-dev libcli11-dev nlohmann-json3-dev python3
JOBS     ?= $(shell nproc)
BUILD    ?= build/release
ASAN     ?= build/asan

.PHONY: deps demo test test-release test-asan bench clean

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

test: test-release test-asan

bench: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)
	@for b in $(BUILD)/bench/kv_bench_*; do \
	  echo "== $$b"; $$b --benchmark_min_time=0.2 || exit 1; done

clean:
	rm -rf build
