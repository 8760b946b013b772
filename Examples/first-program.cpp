#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>

#include <iostream>

int main() {
    using namespace zav;
    ZAVError error;
    const auto database = ZAVDatabaseSchema::openDatabase("first-program.db", {}, &error);
    if (!database) {
        std::cerr << error.message() << '\n';
        return 1;
    }
    const ZAVUUID stream = ZAVUUID::random();
    const auto row = ZAVStreamRepository(database).findOrCreateStreamWithUUID(stream, &error);
    if (row == ZAVDatabaseIdentifierNotSet) {
        std::cerr << error.message() << '\n';
        return 1;
    }

    const auto part = std::make_shared<ZAVEventContent>();
    part->set_media_type("text/plain");
    part->set_body(ZAVData::fromText("Hello!"));
    part->setTransferStatus(ZAVContentTransferComplete);

    const auto event = std::make_shared<ZAVEvent>();
    event->set_type(EventType_MESSAGE);
    event->set_stream_id(ZAVDataFromUUID(stream));
    event->set_client_id(ZAVDataFromUUID(ZAVUUID::random()));
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});

    const ZAVEventRepository repository(database);
    if (!repository.persistEvents({event}, &error)) {
        std::cerr << error.message() << '\n';
        return 1;
    }
    const auto stored = repository.eventForDatabaseIdentifier(event->databaseIdentifier(), &error);
    if (!stored || !stored->content()) {
        std::cerr << error.message() << '\n';
        return 1;
    }
    std::cout << stored->description() << '\n' << stored->content()->front()->body()->asText() << '\n';
}
