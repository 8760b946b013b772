// Works the transfer queues against a content server until nothing is left to do. It may be ended at any
// moment: what was done stays done, and the next run goes on from there.

#include <httplib.h>

#include <ZAVEventRepository/ZAVEventStore.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using namespace zav;

constexpr ZAVSize batch = 16;
constexpr ZAVSize anySize = UINT32_MAX;

/// "http://host:port" and the rest of a URL.
std::pair<std::string, std::string> splitURL(const std::string& url) {
    const auto host = url.find("://");
    const auto path = host == std::string::npos ? host : url.find('/', host + 3);
    if (path == std::string::npos) {
        throw std::runtime_error("no URL of a content: " + url);
    }
    return {url.substr(0, path), url.substr(path)};
}

void require(bool isDone, const ZAVError& error) {
    if (!isDone) {
        throw std::runtime_error(error.description());
    }
}

class Transfers {
public:
    Transfers(ZAVEventStore& store, std::string service) : store_(store), service_(std::move(service)) {}

    /// Goes through the queues once. False when there was nothing in them.
    bool round() const {
        using Events = ZAVEventRepository;
        bool anything = false;
        const auto work = [&](auto step, auto queue, const auto&... limits) {
            std::optional<ZAVSet<ZAVEventContent>> parts;
            ZAVError error;
            const auto look = [&](const Events& events) { parts = (events.*queue)(limits..., &error); };
            require(store_.read(look, &error) && parts, error);
            for (const auto& part : *parts) {
                (this->*step)(*part);
                anything = true;
            }
        };
        work(&Transfers::assignUpload, &Events::eventContentsHavingUnassignedURLsWithError);
        work(&Transfers::upload, &Events::eventContentsHavingIncompleteUploadsWithLimit, batch);
        work(&Transfers::renewDownload,
             &Events::eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes, std::nullopt, anySize,
             batch);
        work(&Transfers::download, &Events::eventContentsHavingIncompleteDownloadsWithLimit, batch);
        return anything;
    }

private:
    /// Changes a part as it is now, unless it was deleted since.
    template <class Change>
    void update(const ZAVEventContent& part, const Change& change) const {
        ZAVError error;
        const auto work = [&](const ZAVEventRepository& events) {
            const auto present = events.eventContentForEventDatabaseIdentifier(part.eventDatabaseIdentifier(),
                                                                               part.index(), &error);
            if (present == nullptr) {
                return !error;
            }
            change(*present);
            return events.persistEventContentUpdate(*present, &error);
        };
        require(store_.write(work, &error), error);
    }

    static void tellComplete(const ZAVEventContent& part) {
        std::cout << "complete: event " << part.eventDatabaseIdentifier() << " part " << part.index()
                  << std::endl;
    }

    /// Asks the service where to send or fetch a part: a URL, and the time at which it expires.
    void askForURL(const ZAVEventContent& part, const std::string& what,
                   ZAVContentTransferStatus status) const {
        httplib::Client client(service_);
        const auto answer = client.Post("/" + what + "/" + part.eventClientID().value().UUIDString() + "/" +
                                        std::to_string(part.index()));
        const auto blank = answer && answer->status == 200 ? answer->body.find(' ') : std::string::npos;
        if (blank == std::string::npos) {
            throw std::runtime_error("the service gives no URL");
        }
        update(part, [&](ZAVEventContent& present) {
            present.set_external_url(answer->body.substr(0, blank));
            present.setExternalContentURLExpiration(
                ZAVDateFromSecondsSince1970(std::strtod(answer->body.c_str() + blank, nullptr)));
            present.setTransferStatus(status);
        });
    }

    void assignUpload(const ZAVEventContent& part) const {
        askForURL(part, "uploads", ZAVContentTransferUploading);
    }

    void renewDownload(const ZAVEventContent& part) const {
        askForURL(part, "downloads", ZAVContentTransferDownloading);
    }

    void upload(const ZAVEventContent& part) const {
        ZAVError error;
        const auto file = store_.content().open(part.eventDatabaseIdentifier(), part.index(), &error);
        require(file.has_value(), error);
        const auto [host, rest] = splitURL(part.external_url().value());
        httplib::Client client(host);
        const auto answer = client.Put(
            rest, static_cast<std::size_t>(file->size()),
            [&file](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                std::array<std::uint8_t, 65536> chunk{};
                const auto count = file->read(offset, std::span(chunk).first(std::min(length, chunk.size())));
                return count && *count != 0 &&
                       sink.write(reinterpret_cast<const char*>(chunk.data()), *count);
            },
            part.media_type().value_or("application/octet-stream"));
        if (!answer || answer->status != 200) {
            throw std::runtime_error("cannot send " + part.fileURL().value().filePath());
        }
        update(part, [&](ZAVEventContent& present) {
            present.set_size(static_cast<std::int64_t>(file->size()));
            present.setTransferStatus(ZAVContentTransferComplete);
            present.setLastAccessed(ZAVNow());
        });
        tellComplete(part);
    }

    void download(const ZAVEventContent& part) const {
        ZAVError error;
        auto writer = store_.content().resumeDownload(part.eventDatabaseIdentifier(), part.index(), &error);
        require(writer.has_value(), error);
        const auto size = static_cast<std::uint64_t>(part.size());
        if ((size == 0 || writer->size() != size) && !fetch(part, *writer)) {
            return;
        }
        require(writer->finish(&error), error);
        tellComplete(part);
    }

    /// Fetches what is missing. False when the URL has expired, which is recorded: the next round asks for
    /// another.
    bool fetch(const ZAVEventContent& part, ZAVContentWriter& writer) const {
        const auto [host, rest] = splitURL(part.external_url().value());
        httplib::Client client(host);
        const httplib::Headers headers{{"Range", "bytes=" + std::to_string(writer.size()) + "-"}};
        int status = 0;
        const auto answer = client.Get(
            rest, headers,
            [&](const httplib::Response& response) {
                status = response.status;
                // A service that knows no ranges sends all of it.
                return status == 206 || status == 410 || (status == 200 && writer.startOver());
            },
            [&](const char* bytes, std::size_t length) {
                return status == 410 || writer.append({reinterpret_cast<const std::uint8_t*>(bytes), length});
            });
        if (answer && status == 410) {
            update(part, [](ZAVEventContent& present) { present.setExternalContentURLExpiration(ZAVNow()); });
            return false;
        }
        if (!answer || (part.size() != 0 && writer.size() != static_cast<std::uint64_t>(part.size()))) {
            throw std::runtime_error("cannot fetch " + part.external_url().value());
        }
        return true;
    }

    ZAVEventStore& store_;
    std::string service_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "downloader DATABASE CACHE-DIRECTORY SERVICE, such as http://127.0.0.1:8080\n";
        return 2;
    }
    try {
        ZAVEventStoreOptions options;
        options.contentDirectory =
            ZAVURL::fileURLWithDirectoryPath(std::filesystem::absolute(argv[2]).lexically_normal().string());
        ZAVError error;
        const auto store = ZAVEventStore::open(argv[1], options, &error);
        require(store != nullptr, error);
        const Transfers transfers(*store, argv[3]);
        while (transfers.round()) {
        }
        return 0;
    } catch (const std::exception& reason) {
        std::cerr << reason.what() << '\n';
        return 1;
    }
}
