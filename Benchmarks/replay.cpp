#include <cstdio>

#include "Replay.h"
#include "RunMain.h"
#include "Support/TemporaryDirectory.h"
#include "Timer.h"

namespace zav::bench {
namespace {

int run(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: zav_replay STORE\n");
        return 2;
    }
    const double begin = processorSeconds();
    const ZAVSet<ZAVEvent> events = readAll(arguments[1]);
    const double read = processorSeconds() - begin;
    makeNew(events);
    const test::TemporaryDirectory directory;
    const double beforeWrite = processorSeconds();
    persist(events, directory.file("store.db"));
    std::printf("%zu %.4f %.4f\n", events.size(), read, processorSeconds() - beforeWrite);
    return 0;
}

}  // namespace
}  // namespace zav::bench

int main(int count, char** arguments) {
    return zav::bench::runMain(zav::bench::run, count, arguments);
}
