#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVVersion.h>

#include <iostream>

int main() {
    const auto database = zav::ZAVDatabaseSchema::openDatabase(":memory:");
    const auto count = zav::ZAVEventRepository(database).countOfEvents();
    std::cout << "ZAVEventRepository " << zav::ZAVLibraryVersion() << '\n';
    return count == 0 ? 0 : 1;
}
