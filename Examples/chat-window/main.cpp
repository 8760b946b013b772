// A chat window on a terminal: it scrolls through a conversation, shows what others store beside it, and
// sends.

#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/ZAVEventStore.h>
#include <ZAVEventRepository/ZAVTimeline.h>
#include <ZAVEventRepository/ZAVTimelineWindow.h>
#include <ZAVEventRepository/ZAVUTF8.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "Conversation.h"
#include "MainLoop.h"
#include "Screen.h"

namespace {

using namespace zav;

class ChatWindow {
public:
    /// Takes the terminal, and gives it back when it goes.
    /// @throws std::runtime_error when there is none, or the conversation cannot be looked at.
    ChatWindow(ZAVEventStore& store, MainLoop& loop, const ZAVUUID& stream, const std::string& user)
        : store_(store), loop_(loop), stream_(stream), user_(user), conversation_(user) {
        ZAVError error;
        const auto observer = [this](const ZAVTimelineDelivery& delivery) { take(delivery); };
        window_ = ZAVTimelineWindow::open(ZAVTimeline(store, stream), observer, {}, &error);
        if (!window_) {
            throw std::runtime_error(error.description());
        }
    }

    /// Returns when the user wants no more or the terminal is gone, and closes the store.
    /// @throws std::runtime_error when the last message could not be stored, or the last events not be read.
    void run() {
        do {
            draw();
        } while (screen_.wait(loop_.descriptor()) && takeKeys());
        window_.reset();
        ZAVError error;
        if (!store_.close(ZAVEventStore::QueuedWorks::run, &error)) {
            throw std::runtime_error(error.description());
        }
        loop_.runPosted();  // how the last message has fared
        if (const std::string& reason = trouble(); !reason.empty()) {
            throw std::runtime_error(reason);
        }
    }

private:
    void take(const ZAVTimelineDelivery& delivery) {
        conversation_.apply(delivery);
        unread_ = delivery.error.message();
        hasEarlier_ = delivery.page.hasEarlier;
        isExtending_ = false;
    }

    void draw() {
        const int rows = screen_.rows();
        const int columns = screen_.columns();
        screen_.clear();
        if (columns < narrowest || rows < 4) {
            screen_.put(0, 0, wrapped("too small", columns).front(), Style::plain);
            screen_.show(0, 0);
            return;
        }
        conversation_.layOut(columns, rows - 3);
        const std::vector<Line> lines = conversation_.shown();
        int row = rows - 2 - static_cast<int>(lines.size());
        for (const Line& line : lines) {
            for (const Span& span : line) {
                screen_.put(row, span.column, span.text, span.style);
            }
            ++row;
        }
        drawBar(0, stream_.UUIDString() + "  " + user_);
        drawBar(rows - 2, status());
        const std::string input = wrapped(input_, columns - 3).back();
        screen_.put(rows - 1, 0, "> " + input, Style::plain);
        screen_.show(rows - 1, 2 + columnsOf(input));
        if (hasEarlier_ && !isExtending_ && conversation_.linesAbove() < rows) {
            isExtending_ = true;
            window_->extendEarlier(50);
        }
    }

    void drawBar(int row, const std::string& text) {
        std::string bar = ' ' + wrapped(text, screen_.columns() - 2).front();
        bar.append(static_cast<std::size_t>(screen_.columns() - columnsOf(bar)), ' ');
        screen_.put(row, 0, bar, Style::bar);
    }

    [[nodiscard]] const std::string& trouble() const { return unsent_.empty() ? unread_ : unsent_; }

    [[nodiscard]] std::string status() const {
        if (const std::string& reason = trouble(); !reason.empty()) {
            return reason;
        }
        if (const auto count = conversation_.newBelow(); count > 0) {
            return std::to_string(count) + " new below: End leads there";
        }
        return "Enter sends, Page Up and Page Down scroll, Escape ends";
    }

    /// Does what was typed and posted.
    /// @return whether the user wants to go on.
    bool takeKeys() {
        loop_.runPosted();
        while (const auto key = screen_.key()) {
            if (*key == 3 || *key == 4 || *key == 27) {  // Ctrl-C, Ctrl-D, Escape
                return false;
            }
            take(*key);
        }
        return true;
    }

    void take(int key) {
        const int page = std::max(screen_.rows() - 4, 1);
        switch (key) {
            case keyUp:
                return conversation_.scroll(-1);
            case keyDown:
                return conversation_.scroll(1);
            case keyPageUp:
                return conversation_.scroll(-page);
            case keyPageDown:
                return conversation_.scroll(page);
            case keyHome:
                return conversation_.scroll(-conversation_.lines());
            case keyEnd:
                return conversation_.scroll(conversation_.lines());
            case keyBackspace:
            case '\b':
            case 127:
                return eraseCharacter();
            case '\n':
            case '\r':
                return send();
            default:
                if (key >= ' ' && key < keyUp) {
                    input_ += static_cast<char>(key);
                }
        }
    }

    void eraseCharacter() {
        while (!input_.empty()) {
            const char byte = input_.back();
            input_.pop_back();
            if ((static_cast<unsigned char>(byte) & 0xC0U) != 0x80U) {
                break;
            }
        }
    }

    /// Stores what was typed, on a thread of the store: another process may be writing.
    void send() {
        if (input_.empty()) {
            return;
        }
        if (!ZAVIsUTF8(input_)) {
            unsent_ = "Not sent: this is no text in UTF-8";
            return;
        }
        auto part = std::make_shared<ZAVEventContent>();
        part->set_media_type("text/plain");
        part->set_body(ZAVData::fromText(input_));
        part->set_size(static_cast<std::int64_t>(input_.size()));
        auto message = std::make_shared<ZAVEvent>();
        message->set_type(EventType_MESSAGE);
        message->set_stream_id(ZAVDataFromUUID(stream_));
        message->set_client_id(ZAVDataFromUUID(ZAVUUID::random()));
        message->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});

        const auto reason = std::make_shared<ZAVError>();
        const auto work = [this, message, reason](const ZAVRepositories&) {
            return store_.send(message, reason.get()).has_value();
        };
        const auto completion = [this, text = input_, reason](const ZAVWorkOutcome& outcome) {
            const bool isStored = outcome.state == ZAVWorkOutcome::State::done;
            unsent_ = isStored ? "" : "Not sent: " + (outcome.error ? outcome.error : *reason).message();
            input_.insert(0, isStored ? "" : text);
        };
        input_.clear();
        conversation_.scroll(conversation_.lines());
        ZAVError error;
        if (!store_.writeAsync(work, completion, {}, &error)) {
            unsent_ = error.message();
        }
    }

    ZAVEventStore& store_;
    MainLoop& loop_;
    ZAVUUID stream_;
    std::string user_;
    Screen screen_{};
    Conversation conversation_;
    std::string input_{};
    std::string unsent_{};  ///< why the last message could not be stored
    std::string unread_{};  ///< why the events could not be read the last time
    bool hasEarlier_ = false;
    bool isExtending_ = false;
    std::unique_ptr<ZAVTimelineWindow> window_{};  // goes first: it tells the others
};

}  // namespace

int main(int argc, char** argv) {
    const auto stream = argc == 4 ? ZAVUUID::fromString(argv[2]) : std::nullopt;
    if (!stream) {
        std::cerr << "chat-window DATABASE STREAM USER, where STREAM is a UUID\n";
        return 2;
    }
    ddLogLevel = 0;  // a line of the log would stand in the midst of the screen
    try {
        MainLoop loop;
        ZAVEventStoreOptions options;
        options.userID = argv[3];
        options.executor = [&loop](std::function<void()> call) { loop.post(std::move(call)); };
        options.lookForCommitsOfOthersEvery = std::chrono::milliseconds(100);
        ZAVError error;
        const auto store = ZAVEventStore::open(argv[1], options, &error);
        if (!store) {
            throw std::runtime_error(std::string(argv[1]) + ": " + error.description());
        }
        ChatWindow(*store, loop, *stream, argv[3]).run();
        return 0;
    } catch (const std::exception& reason) {
        std::cerr << reason.what() << '\n';
        return 1;
    }
}
