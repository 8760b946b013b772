// Works the transfer queues against a content server until nothing is left to do. It may be ended at any
// moment: what was done stays done, and the next run goes on from there.

#include <httplib.h>

#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using namespace zav;
namespace fs = std::filesystem;

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

class Transfers {
public:
    Transfers(std::shared_ptr<FMDatabase> database, std::string service)
        : repository_(std::move(database)), service_(std::move(service)) {}

    /// Goes through the queues once. False when there was nothing in them.
    bool round() const {
        bool anything = false;
        ZAVError error;
        const auto work = [&](const auto& queue, auto step) {
            if (!queue) {
                throw std::runtime_error(error.description());
            }
            for (const auto& part : *queue) {
                (this->*step)(*part);
                anything = true;
            }
        };
        work(repository_.eventContentsHavingUnassignedURLsWithError(&error), &Transfers::assignUpload);
        work(repository_.eventContentsHavingIncompleteUploadsWithLimit(batch, &error), &Transfers::upload);
        work(repository_.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
                 std::nullopt, anySize, batch, &error),
             &Transfers::renewDownload);
        work(repository_.eventContentsHavingIncompleteDownloadsWithLimit(batch, &error),
             &Transfers::download);
        return anything;
    }

private:
    void record(const ZAVEventContent& part) const {
        ZAVError error;
        if (!repository_.persistEventContentUpdate(part, &error)) {
            throw std::runtime_error(error.description());
        }
    }

    void recordComplete(ZAVEventContent& part, const fs::path& file) const {
        part.set_size(static_cast<std::int64_t>(fs::file_size(file)));
        part.setTransferStatus(ZAVContentTransferComplete);
        part.setLastAccessed(ZAVNow());
        record(part);
        std::cout << "complete: event " << part.eventDatabaseIdentifier() << " part " << part.index()
                  << std::endl;
    }

    /// Asks the service where to send or fetch a part: a URL, and the time at which it expires.
    void askForURL(ZAVEventContent& part, const std::string& what) const {
        httplib::Client client(service_);
        const auto answer = client.Post("/" + what + "/" + part.eventClientID().value().UUIDString() + "/" +
                                        std::to_string(part.index()));
        const auto blank = answer && answer->status == 200 ? answer->body.find(' ') : std::string::npos;
        if (blank == std::string::npos) {
            throw std::runtime_error("the service gives no URL");
        }
        part.set_external_url(answer->body.substr(0, blank));
        part.setExternalContentURLExpiration(
            ZAVDateFromSecondsSince1970(std::strtod(answer->body.c_str() + blank, nullptr)));
    }

    void assignUpload(ZAVEventContent& part) const {
        askForURL(part, "uploads");
        part.setTransferStatus(ZAVContentTransferUploading);
        record(part);
    }

    void upload(ZAVEventContent& part) const {
        const fs::path path = part.fileURL().value().filePath();
        std::ifstream file(path, std::ios::binary);
        const auto [host, rest] = splitURL(part.external_url().value());
        httplib::Client client(host);
        const auto answer = client.Put(
            rest, fs::file_size(path),
            [&file](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                std::string chunk(std::min<std::size_t>(length, 65536), '\0');
                file.seekg(static_cast<std::streamoff>(offset));
                return file.read(chunk.data(), static_cast<std::streamsize>(chunk.size())) &&
                       sink.write(chunk.data(), chunk.size());
            },
            part.media_type().value_or("application/octet-stream"));
        if (!answer || answer->status != 200) {
            throw std::runtime_error("cannot send " + path.string());
        }
        recordComplete(part, path);
    }

    void renewDownload(ZAVEventContent& part) const {
        askForURL(part, "downloads");
        part.setTransferStatus(ZAVContentTransferDownloading);
        record(part);
    }

    /// Fetches into a file beside the part's own, from where an earlier run was interrupted, and renames that
    /// when it is whole: the part's file is never seen half written.
    void download(ZAVEventContent& part) const {
        const fs::path path = part.fileURL().value().filePath();
        const fs::path partial = path.string() + ".partial";
        if (!fs::exists(path)) {
            fs::create_directories(path.parent_path());
            if (!fetch(part, partial)) {
                return;
            }
            fs::rename(partial, path);
        }
        recordComplete(part, path);
    }

    /// False when the URL has expired, which is recorded: the next round asks for another.
    bool fetch(ZAVEventContent& part, const fs::path& partial) const {
        const std::uint64_t present = fs::exists(partial) ? fs::file_size(partial) : 0;
        const auto size = static_cast<std::uint64_t>(part.size());
        if (present == size && size != 0) {
            return true;
        }
        std::ofstream file(partial, std::ios::binary | std::ios::app);
        const auto [host, rest] = splitURL(part.external_url().value());
        httplib::Client client(host);
        httplib::Headers headers;
        if (present != 0) {
            headers.emplace("Range", "bytes=" + std::to_string(present) + "-");
        }
        int status = 0;
        const auto answer = client.Get(
            rest, headers,
            [&](const httplib::Response& response) {
                status = response.status;
                return status == (present == 0 ? 200 : 206) || status == 410;
            },
            [&](const char* bytes, std::size_t length) {
                return status == 410 ||
                       file.write(bytes, static_cast<std::streamsize>(length)).flush().good();
            });
        if (answer && status == 410) {
            part.setExternalContentURLExpiration(ZAVNow());
            record(part);
            return false;
        }
        file.close();
        if (!answer || !file || (size != 0 && fs::file_size(partial) != size)) {
            throw std::runtime_error("cannot fetch " + part.external_url().value());
        }
        return true;
    }

    ZAVEventRepository repository_;
    std::string service_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "downloader DATABASE CACHE-DIRECTORY SERVICE, such as http://127.0.0.1:8080\n";
        return 2;
    }
    ::umask(077);  // content is its owner's alone: its files, and the directories that are made for them
    try {
        ZAVSetMessageRepositoryCacheBaseDirectoryURL(
            ZAVURL::fileURLWithDirectoryPath(fs::absolute(argv[2]).lexically_normal().string()));
        ZAVError error;
        const auto database = ZAVDatabaseSchema::openDatabase(argv[1], {}, &error);
        if (!database) {
            throw std::runtime_error(error.description());
        }
        const Transfers transfers(database, argv[3]);
        while (transfers.round()) {
        }
        return 0;
    } catch (const std::exception& reason) {
        std::cerr << reason.what() << '\n';
        return 1;
    }
}
