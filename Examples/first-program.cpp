#include <ZAVEventRepository/ZAVEventStore.h>

#include <iostream>

using namespace zav;

std::shared_ptr<ZAVEvent> message(const std::string& text) {
    const auto part = std::make_shared<ZAVEventContent>();
    part->set_media_type("text/plain");
    part->set_body(ZAVData::fromText(text));
    auto event = std::make_shared<ZAVEvent>();
    event->set_type(EventType_MESSAGE);
    event->set_client_id(ZAVDataFromUUID(ZAVUUID::random()));
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
    return event;
}

int main() {
    ZAVEventStoreOptions options;
    options.userID = "ada";
    options.appID = *ZAVUUID::fromString("9f4a5f2e-0c65-4a35-9c0e-6d0f6a3b1c55");
    ZAVError error;
    const auto store = ZAVEventStore::open("first-program.db", options, &error);
    const ZAVUUID room = ZAVUUID::random();
    const auto greeting = message("Hello!");  // as the service sends it
    greeting->set_creator_id("bruno");
    greeting->set_seq(1);
    const auto answer = message("Hello, Bruno!");
    answer->set_stream_id(ZAVDataFromUUID(room));
    if (!store || !store->receive(room, std::vector{greeting}, {}, &error) || !store->send(answer, &error)) {
        std::cerr << error.message() << '\n';
        return 1;
    }
    store->read([&](const ZAVEventRepository& events) {
        for (const auto& event : {greeting, answer}) {
            const auto kept = events.eventForDatabaseIdentifier(event->databaseIdentifier());
            std::cout << *kept->creator_id() << ": " << kept->content()->front()->body()->asText() << '\n';
        }
    });
}
