// A content store for the downloader to talk to: hands out URLs that expire, serves files and takes files in.
// It prints its address, then a line for each request.

#include <httplib.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>

namespace {

namespace fs = std::filesystem;

class ContentServer {
public:
    ContentServer(fs::path directory, std::chrono::milliseconds delay, std::chrono::seconds validity)
        : directory_(std::move(directory)), delay_(delay), validity_(validity) {
        const char* const content = R"(/content/([0-9a-f-]+)/(\d+)/(\d+))";
        server_.Post(R"(/(uploads|downloads)/([0-9a-f-]+)/(\d+))",
                     [this](const auto& request, auto& response) { assign(request, response); });
        server_.Get(content, [this](const auto& request, auto& response) { serve(request, response); });
        server_.Put(content,
                    [this](const httplib::Request& request, httplib::Response& response,
                           const httplib::ContentReader& reader) { take(request, response, reader); });
    }

    int listen() {
        const int port = server_.bind_to_any_port("127.0.0.1");
        if (port < 0) {
            std::cerr << "no port is free\n";
            return 1;
        }
        address_ = "http://127.0.0.1:" + std::to_string(port);
        print(address_);
        return server_.listen_after_bind() ? 0 : 1;
    }

private:
    using Request = httplib::Request;
    using Response = httplib::Response;

    static long long now() { return static_cast<long long>(std::time(nullptr)); }

    void print(const std::string& line) {
        const std::lock_guard lock(output_);
        std::cout << line << std::endl;
    }

    [[nodiscard]] fs::path fileOf(const Request& request) const {
        return directory_ / (request.matches[1].str() + "-" + request.matches[2].str());
    }

    /// The URL carries the time at which it expires.
    void assign(const Request& request, Response& response) {
        const std::string expiry = std::to_string(now() + validity_.count());
        response.set_content(address_ + "/content/" + request.matches[2].str() + "/" +
                                 request.matches[3].str() + "/" + expiry + " " + expiry,
                             "text/plain");
        print(request.matches[1].str() + " " + request.matches[2].str() + "-" + request.matches[3].str());
    }

    void serve(const Request& request, Response& response) {
        std::ifstream file(fileOf(request), std::ios::binary);
        if (!file) {
            response.status = 404;
            return;
        }
        if (std::strtoll(request.matches[3].str().c_str(), nullptr, 10) <= now()) {
            response.status = 410;
            return;
        }
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        print("get " + fileOf(request).filename().string() + " from " +
              std::to_string(request.ranges.empty() ? 0 : request.ranges.front().first));
        response.set_content_provider(
            bytes.size(), "application/octet-stream",
            [this, bytes](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                std::this_thread::sleep_for(delay_);
                return sink.write(bytes.data() + offset, std::min<std::size_t>(length, 16384));
            });
    }

    void take(const Request& request, Response& response, const httplib::ContentReader& reader) {
        const fs::path path = fileOf(request);
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        const bool whole = reader([&file](const char* bytes, std::size_t length) {
            return file.write(bytes, static_cast<std::streamsize>(length)).good();
        });
        file.close();
        response.status = whole && file ? 200 : 500;
        print("put " + path.filename().string());
    }

    fs::path directory_;
    std::chrono::milliseconds delay_;
    std::chrono::seconds validity_;
    std::string address_;
    std::mutex output_;
    httplib::Server server_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 4) {
        std::cerr << "content-server DIRECTORY [MILLISECONDS-PER-CHUNK [SECONDS-THAT-URLS-WORK]]\n";
        return 2;
    }
    ContentServer server(argv[1], std::chrono::milliseconds(argc > 2 ? std::strtol(argv[2], nullptr, 10) : 0),
                         std::chrono::seconds(argc > 3 ? std::strtol(argv[3], nullptr, 10) : 3600));
    return server.listen();
}
