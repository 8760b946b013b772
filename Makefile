# make run           the main job: import a sample conversation into a database file, print statistics, list what can be sent;
#                    builds the tool alone, with one compiler
# make test          build everything and run all tests
# make test-long     the sweeps, crashes and random sequences again, at length (an hour and more)
# make threads       the tests of the store under the thread sanitizer, on the engine that is compiled in
# make fuzz          the fuzzers, FUZZ_SECONDS each
# make static        clang-tidy and cppcheck
# make valgrind      the tests under memcheck
# make coverage      the tests with coverage, and its lower limits
# make docs          the reference of the public headers, in $(BUILD)/reference
# make bench         the library beside hand-written C++ and other ways to use the engine
# make instructions  the instructions of small workloads, and their upper limits
# make scale         what each operation costs as the store grows, in $(BUILD)/scale; SIZES and SCALE_OPTIONS may be given
# make commits       how long commits of one event take, beside a bare append of as many bytes
# make rates         how many events a second can be stored, those of EVENTS, a JSON Lines file
# make store         what the store for several threads adds, and how its readers and its writer fare together
# make windows       what a commit executes on its thread while windows are open, and its upper limits
# make timeline      what pages of timelines and of the list of conversations cost, and their limits, in stores of
#                    TIMELINE_SIZES, which may be given: the large one takes 200 bytes of $TMPDIR for an event
# make memory        what records take in memory, and whether memory grows with use
# make tool-cost     the tool beside the library alone, at the events of EVENTS, a JSON Lines file
# make toolchains    builds with clang++ and libc++, and compiles for 32 bits
# make presets       configures, builds and tests with each of PRESETS (shared sqlcipher)
# make check         all that has to pass before a change is accepted
# make hooks         has git check the format and the layers of what is staged, before each commit in this clone
#
# Each sets up what it needs: on Debian and Ubuntu missing packages are installed, elsewhere they are named. What `make run`
# has built, `make test` uses.
# BUILD, BUILD_TYPE, CXX, SANITIZE, UNITY, SHARES and ENGINE may be given, as in: make test CXX=clang++
# SANITIZE=address,undefined BUILD=build-asan. UNITY=ON compiles the product several sources at a time, in half of the time;
# with SHARES=16 each program of tests runs as 16 processes, and not as one for each test. ENGINE is that of ZAV_ENGINE;
# amalgamation, SQLite compiled in, is fetched into build/engine. What measures has a folder for each engine,
# $(BUILD)/bench-amalgamation; with BENCH=$(BUILD) it measures the library that the tests use.

BUILD ?= build
BUILD_TYPE ?= Release
SANITIZE ?=
UNITY ?= OFF
SHARES ?= 0
ENGINE ?=
ifeq ($(origin CXX),default)
CXX := g++
endif
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

FETCH_ENGINE = $(if $(filter amalgamation,$(ENGINE)),scripts/fetch-engine.sh)
ENGINE_CHOICE = $(if $(ENGINE),-DZAV_ENGINE=$(ENGINE))

SAMPLE_DATABASE = $(BUILD)/sample.db
ZAVEVENTS = $(BUILD)/Tools/zavevents/zavevents

FUZZ_SECONDS ?= 600
BENCH = $(BUILD)/bench$(ENGINE:%=-%)
SIZES ?= 1000,10000,100000,1000000
SCALE_OPTIONS ?=
TIMELINE_SIZES ?= 10000,10000000
PRESETS ?= shared sqlcipher

CONFIGURE = cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DCMAKE_CXX_COMPILER=$(CXX) \
	-DZAV_SANITIZE=$(SANITIZE) -DCMAKE_UNITY_BUILD=$(UNITY) -DZAV_TEST_SHARES=$(SHARES) $(ENGINE_CHOICE)
# A folder that is configured already stays as it is, so that its tests are not taken out of it.
TOOL_ALONE = $(if $(wildcard $(BUILD)/CMakeCache.txt),,-DZAV_BUILD_TESTS=OFF -DZAV_BUILD_EXAMPLES=OFF)
BENCH_ALONE = $(if $(wildcard $(BENCH)/CMakeCache.txt),,-DZAV_BUILD_TESTS=OFF -DZAV_BUILD_TOOLS=OFF -DZAV_BUILD_EXAMPLES=OFF)

.PHONY: run tool test test-long threads fuzz static valgrind coverage docs bench configure-bench instructions scale commits rates store \
	windows timeline memory tool-cost toolchains presets check hooks build setup setup-tool setup-checks format check-format clean

run: tool
	rm -f $(SAMPLE_DATABASE) $(SAMPLE_DATABASE)-wal $(SAMPLE_DATABASE)-shm
	$(ZAVEVENTS) import $(SAMPLE_DATABASE) Examples/sample-conversation.jsonl --record-changes
	$(ZAVEVENTS) stats $(SAMPLE_DATABASE)
	$(ZAVEVENTS) events $(SAMPLE_DATABASE) --publishable

tool: setup-tool
	$(CONFIGURE) $(TOOL_ALONE)
	cmake --build $(BUILD) -j $(JOBS) --target zavevents

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)
	@scripts/report-sweeps.sh $(BUILD)/Testing/Temporary/LastTest.log

test-long: build
	scripts/check-loss.sh $(BUILD)/loss
	scripts/check-migration.sh $(ZAVEVENTS) $(BUILD)/migration
	ZAV_TEST_EFFORT=long ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS) -L long
	@scripts/report-sweeps.sh $(BUILD)/Testing/Temporary/LastTest.log

# All of the engine is watched too, which the one of a distribution is not.
threads: ENGINE = amalgamation
threads: CXX = clang++
threads: setup setup-checks
	cmake -S . -B $(BUILD)/threads -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=$(CXX) \
		-DZAV_SANITIZE=thread -DCMAKE_UNITY_BUILD=ON -DZAV_TEST_SHARES=16 $(ENGINE_CHOICE) \
		-DZAV_BUILD_TESTS=ON -DZAV_BUILD_EXAMPLES=OFF
	cmake --build $(BUILD)/threads -j $(JOBS) --target zav_store_tests
	ctest --test-dir $(BUILD)/threads --output-on-failure -j $(JOBS) -R '^zav_store_tests\.'

fuzz: setup
	scripts/fuzz.sh $(FUZZ_SECONDS) $(BUILD)/fuzz

static: build setup-checks
	scripts/check-static.sh $(BUILD)

valgrind: build setup-checks
	scripts/valgrind.sh $(BUILD)

bench: configure-bench
	cmake --build $(BENCH) -j $(JOBS) --target zav_benchmarks
	$(BENCH)/Benchmarks/zav_benchmarks

instructions: configure-bench
	cmake --build $(BENCH) -j $(JOBS) --target zav_instructions
	python3 -B Benchmarks/check_instructions.py $(BENCH)

scale: configure-bench
	cmake --build $(BENCH) -j $(JOBS) --target zav_scale
	$(BENCH)/Benchmarks/zav_scale --sizes=$(SIZES) $(SCALE_OPTIONS) --output=$(BENCH)/scale.csv
	python3 -B Benchmarks/plot.py $(BENCH)/scale.csv $(BUILD)/scale

commits: configure-bench
	cmake --build $(BENCH) -j $(JOBS) --target zav_commits
	$(BENCH)/Benchmarks/zav_commits

rates: tool configure-bench
	cmake --build $(BENCH) -j $(JOBS) --target zav_rates
	rm -f $(BUILD)/rates.db $(BUILD)/rates.db-wal $(BUILD)/rates.db-shm
	$(ZAVEVENTS) import $(BUILD)/rates.db $(EVENTS)
	$(BENCH)/Benchmarks/zav_rates $(BUILD)/rates.db

store: configure-bench
	cmake --build $(BENCH) -j $(JOBS) --target zav_store
	$(BENCH)/Benchmarks/zav_store

windows: configure-bench
	cmake --build $(BENCH) -j $(JOBS) --target zav_windows
	python3 -B Benchmarks/check_windows.py $(BENCH)

timeline: configure-bench
	cmake --build $(BENCH) -j $(JOBS) --target zav_timeline zav_joined
	$(BENCH)/Benchmarks/zav_timeline --sizes=$(TIMELINE_SIZES)
	python3 -B Benchmarks/check_joined.py $(BENCH)

memory: configure-bench
	cmake --build $(BENCH) -j $(JOBS) --target zav_memory
	$(BENCH)/Benchmarks/zav_memory

tool-cost: build configure-bench
	cmake --build $(BENCH) -j $(JOBS) --target zav_replay
	python3 -B Benchmarks/compare_tool.py $(ZAVEVENTS) $(BENCH) $(EVENTS)

configure-bench: setup-checks
	cmake -S . -B $(BENCH) -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=$(CXX) $(ENGINE_CHOICE) \
		-DZAV_BUILD_BENCHMARKS=ON $(BENCH_ALONE)

docs: setup setup-checks
	$(CONFIGURE)
	cmake --build $(BUILD) --target docs

coverage: setup-checks
	scripts/coverage.sh $(BUILD)/coverage

toolchains: setup setup-checks
	scripts/check-toolchains.sh $(BUILD)/toolchains

presets: setup setup-checks
	scripts/check-presets.sh $(PRESETS)

check:
	.ci/run

hooks:
	git config core.hooksPath .githooks

build: setup
	$(CONFIGURE) -DZAV_BUILD_TESTS=ON -DZAV_BUILD_EXAMPLES=ON
	cmake --build $(BUILD) -j $(JOBS)

setup:
	@ENGINE="$(ENGINE)" scripts/setup.sh
	@$(FETCH_ENGINE)

setup-tool:
	@CXX="$(CXX)" ENGINE="$(ENGINE)" scripts/setup.sh --tool
	@$(FETCH_ENGINE)

setup-checks:
	@scripts/setup.sh --checks
	@$(FETCH_ENGINE)

format:
	scripts/format.sh

check-format:
	scripts/format.sh --check

clean:
	rm -rf $(BUILD)
