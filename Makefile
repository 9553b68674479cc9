# Two commands a newcomer needs: `make run` and `make test`.
# Everything else here is for developers (fuzz, bench, asan).

BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_GEN  := $(shell command -v ninja >/dev/null 2>&1 && echo "-G Ninja")
FUZZ_SECONDS ?= 60

.PHONY: all deps build run test test-main test-asan asan fuzz bench package clean

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

run: build
	@bash scripts/run.sh $(BUILD)

test: test-main test-asan

test-main: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The unit tests again, built with AddressSanitizer and UndefinedBehaviorSanitizer.
$(ASAN_BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DNM_SANITIZE=ON -DNM_BENCH=OFF

asan: deps $(ASAN_BUILD)/CMakeCache.txt
	cmake --build $(ASAN_BUILD) -j $(JOBS)

test-asan: asan
	cd $(ASAN_BUILD) && NM_STRESS_ROUNDS=$${NM_STRESS_ROUNDS_ASAN:-200} \
	  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS) -L unit

$(FUZZ_BUILD)/CMakeCache.txt: | deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DNM_FUZZ=ON -DNM_SANITIZE=ON -DNM_GUI=OFF -DNM_BENCH=OFF

fuzz: deps $(FUZZ_BUILD)/CMakeCache.txt
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	bash fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

bench: build
	bash bench/run.sh $(BUILD)

# The Debian package, $(BUILD)/nimbra-crypt_<version>_<arch>.deb.
package: build
	cmake --build $(BUILD) --target package

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
