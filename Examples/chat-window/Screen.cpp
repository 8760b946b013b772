#include "Screen.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include <curses.h>

namespace {

constexpr std::array<std::pair<int, Key>, 7> keys{{{KEY_UP, keyUp},
                                                   {KEY_DOWN, keyDown},
                                                   {KEY_PPAGE, keyPageUp},
                                                   {KEY_NPAGE, keyPageDown},
                                                   {KEY_HOME, keyHome},
                                                   {KEY_END, keyEnd},
                                                   {KEY_BACKSPACE, keyBackspace}}};

attr_t attributesOf(Style style) {
    switch (style) {
        case Style::plain:
            return A_NORMAL;
        case Style::faint:
            return A_DIM;
        case Style::bar:
            return A_REVERSE;
        default:  // the others have a colour of their own
            return A_BOLD | static_cast<attr_t>(COLOR_PAIR(static_cast<int>(style)));
    }
}

}  // namespace

Screen::Screen() {
    // Texts are UTF-8, also where no language is set. Done before the first of them is measured.
    if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX == 1) {
        static_cast<void>(std::setlocale(LC_CTYPE, "C.UTF-8"));
    }
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0 ||
        newterm(nullptr, stdout, stdin) == nullptr) {
        throw std::runtime_error("this is no terminal that a window can be shown on");
    }
    raw();  // Ctrl-C too is a key
    noecho();
    keypad(stdscr, true);
    nodelay(stdscr, true);
    set_escdelay(25);
    start_color();
    use_default_colors();
    init_pair(static_cast<short>(Style::name), COLOR_GREEN, -1);
    init_pair(static_cast<short>(Style::ownName), COLOR_CYAN, -1);
    init_pair(static_cast<short>(Style::waiting), COLOR_YELLOW, -1);
    // A change of the size is taken while waiting for it, so that none is missed between two waits.
    sigset_t sizes;
    sigemptyset(&sizes);
    sigaddset(&sizes, SIGWINCH);
    pthread_sigmask(SIG_BLOCK, &sizes, nullptr);
}

Screen::~Screen() {
    endwin();
}

int Screen::rows() const {
    return LINES;
}

int Screen::columns() const {
    return COLS;
}

void Screen::clear() {
    erase();
}

void Screen::put(int row, int column, const std::string& text, Style style) {
    attrset(attributesOf(style));
    mvaddstr(row, column, text.c_str());
}

void Screen::show(int cursorRow, int cursorColumn) {
    move(cursorRow, cursorColumn);
    refresh();
}

bool Screen::wait(int descriptor) {
    std::array<pollfd, 2> read{{{STDIN_FILENO, POLLIN, 0}, {descriptor, POLLIN, 0}}};
    sigset_t none;
    sigemptyset(&none);
    if (ppoll(read.data(), read.size(), nullptr, &none) < 0) {
        return errno == EINTR;
    }
    return (read.front().revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

std::optional<int> Screen::key() {
    const int code = getch();
    if (code == ERR) {
        return std::nullopt;
    }
    for (const auto& [known, key] : keys) {
        if (code == known) {
            return key;
        }
    }
    return code < keyUp ? code : keyOther;
}
