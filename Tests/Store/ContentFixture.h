#pragma once

#include <ZAVEventRepository/ZAVEventStore.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Store/EventStoreFixture.h"

namespace zav::test {

/// The bytes of a text.
inline std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// A store of the user ada, with a directory for its content, which is not there at first.
class ContentStore : public EventStore {
protected:
    ContentStore() : ada_(open(optionsOfAda())) {}

    [[nodiscard]] ZAVEventStoreOptions optionsOfAda() {
        ZAVEventStoreOptions options = optionsWithLoop();
        options.userID = "ada";
        options.appID = uuidNumber(99);
        options.contentDirectory = ZAVURL::fileURLWithDirectoryPath(root());
        return options;
    }

    [[nodiscard]] ZAVEventStore& ada() { return *ada_; }
    [[nodiscard]] ZAVContentCache& content() { return ada_->content(); }
    void reopenAda() {
        ada_.reset();
        ada_ = open(optionsOfAda());
    }
    void closeAda() { ada_.reset(); }

    [[nodiscard]] std::string root() const { return path() + "-content"; }
    [[nodiscard]] std::string folderOfAda() const {
        return root() + "/" + uuidNumber(99).UUIDString() + "/ada";
    }
    [[nodiscard]] std::string fileOf(int number, int index = 0) const {
        return folderOfAda() + "/" + uuidNumber(number).UUIDString() + "/part-" + std::to_string(index);
    }
    [[nodiscard]] static std::string contentOf(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static void place(const std::string& path, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << text;
    }
    /// The paths of all files below the directory.
    [[nodiscard]] std::vector<std::string> files() const {
        std::vector<std::string> result;
        if (std::filesystem::exists(root())) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(root())) {
                if (!entry.is_directory()) {
                    result.push_back(entry.path().string());
                }
            }
        }
        return result;
    }

    /// Receives a message whose only part is kept by the service; returns its row.
    ZAVDatabaseIdentifier receivePicture(int number, const ZAVUUID& stream = uuidNumber(1)) {
        auto event = makeEvent(EventType_MESSAGE, stream, number);
        event->set_creator_id("bruno");
        event->set_seq(static_cast<ZAVSequence>(number));
        auto part = std::make_shared<ZAVEventContent>();
        part->set_media_type("image/png");
        part->set_external_url("https://files.example/" + std::to_string(number));
        part->set_size(5);
        event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
        const std::vector<std::shared_ptr<ZAVEvent>> events{event};
        ZAVError error;
        const auto answers = ada().receive(stream, events, {}, &error);
        EXPECT_TRUE(answers) << error.description();
        return event->databaseIdentifier();
    }

    /// Receives one and downloads it.
    ZAVDatabaseIdentifier downloadPicture(int number, const std::string& text,
                                          const ZAVUUID& stream = uuidNumber(1)) {
        const ZAVDatabaseIdentifier row = receivePicture(number, stream);
        ZAVError error;
        auto writer = content().beginDownload(row, 0, &error);
        EXPECT_TRUE(writer && writer->append(bytesOf(text), &error) && writer->finish(&error))
            << error.description();
        return row;
    }

    /// Sends a message whose only part is a file; returns its row.
    ZAVDatabaseIdentifier sendPicture(int number, const std::string& text) {
        ZAVError error;
        const auto file = content().put(uuidNumber(number), 0, bytesOf(text), &error);
        EXPECT_TRUE(file) << error.description();
        auto event = makeEvent(EventType_MESSAGE, uuidNumber(1), number);
        auto part = std::make_shared<ZAVEventContent>();
        part->set_media_type("image/png");
        part->set_size(static_cast<std::int64_t>(text.size()));
        part->setFileURL(file);
        event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
        const auto sent = ada().send(event, &error);
        EXPECT_TRUE(sent) << error.description();
        return event->databaseIdentifier();
    }

    /// The rows of a query, each with its values joined by "|".
    [[nodiscard]] std::vector<std::string> rows(const std::string& sql) {
        std::vector<std::string> result;
        onDatabase([&](FMDatabase& database) { result = rowsOf(database, sql); });
        return result;
    }

    void execute(const std::string& sql) {
        onDatabase([&](FMDatabase& database) { EXPECT_TRUE(database.executeStatements(sql)) << sql; });
    }

private:
    /// Past the repositories, by the store itself while it is open: a file with two names is opened no more.
    template <class Work>
    void onDatabase(const Work& work) {
        if (ada_ == nullptr) {
            work(*openHandle(path()));
            return;
        }
        ZAVError error;
        EXPECT_TRUE(ada_->write(
            [&](const ZAVRepositories& repositories) {
                work(repositories.events.database());
                return true;
            },
            &error))
            << error.description();
    }

    std::unique_ptr<ZAVEventStore> ada_;
};

}  // namespace zav::test
