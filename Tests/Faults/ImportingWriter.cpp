// Imports batches into a database, one after the other, until it is killed; now and then it closes the
// database and opens it again. Standard output gets a line for each thing that is done: "opening", "open",
// and the number of each batch once its transaction has been committed, or once it is found to have been
// committed by an earlier writer.
//
// usage: importing-writer DATABASE FIRST-BATCH JOURNAL
//
// FIRST-BATCH may be "none": nothing is imported. JOURNAL is "log" or "rollback".

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Faults/ImportedBatch.h"

namespace {

using namespace zav;

/// Should the one who kills it have gone, the writer ends by itself.
constexpr unsigned secondsAtMost = 60;

/// Ends the writer when there is nobody to hear it.
void say(const std::string& line) {
    const std::string text = line + "\n";
    if (::write(STDOUT_FILENO, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        std::_Exit(1);
    }
}

int failWith(const ZAVError& error) {
    std::fprintf(stderr, "importing-writer: %s\n", error.description().c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    ::alarm(secondsAtMost);
    FMDatabaseOptions options;
    options.writeAheadLog = std::strcmp(argv[3], "log") == 0;
    options.writeAheadLogPages = 150;  // folds the log every few batches
    options.pageCacheKiB = 256;        // and writes pages before the transaction ends
    ZAVError error;
    say("opening");
    auto database = ZAVDatabaseSchema::openDatabase(argv[1], options, &error);
    if (!database) {
        return failWith(error);
    }
    say("open");
    if (std::strcmp(argv[2], "none") == 0) {
        ::pause();
    }
    const int first = std::atoi(argv[2]);
    for (int number = first;; ++number) {
        const zav::test::ImportedBatch batch(number);
        const bool isStored =
            number == first && batch.presenceIn(database) == zav::test::ImportedBatch::whole;
        if (!isStored && !batch.store(database, &error)) {
            return failWith(error);
        }
        say(std::to_string(number));
        if (number % 5 == 4) {
            database.reset();
            database = ZAVDatabaseSchema::openDatabase(argv[1], options, &error);
            if (!database) {
                return failWith(error);
            }
        }
    }
}
