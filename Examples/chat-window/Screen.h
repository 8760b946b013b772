#pragma once

#include <optional>
#include <string>

/// How a text stands on the screen.
enum class Style { plain, faint, bar, name, ownName, waiting };

/// The keys that are no characters, behind the values of a byte.
enum Key : int { keyUp = 256, keyDown, keyPageUp, keyPageDown, keyHome, keyEnd, keyBackspace, keyOther };

/// The terminal, for as long as this lives: its end gives it back as it was.
class Screen {
public:
    /// @throws std::runtime_error when this is no terminal.
    Screen();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    [[nodiscard]] int rows() const;
    [[nodiscard]] int columns() const;

    /// Takes everything away, to be put there anew.
    void clear();
    /// @param text fit to be shown, and no longer than the rest of the row.
    void put(int row, int column, const std::string& text, Style style);
    /// Shows what was put, and the cursor.
    void show(int cursorRow, int cursorColumn);

    /// Waits for a key, another size or a descriptor that has something to read.
    /// @return false when the terminal is gone.
    bool wait(int descriptor);
    /// What was typed: a byte, or a `Key`; none when that was all.
    std::optional<int> key();
};
