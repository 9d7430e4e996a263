#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brimble {

/// The text a terminal shows, rebuilt from the bytes its programs write to it (what xterm logs):
/// printable UTF-8, carriage return, line feed, backspace and tab; the cursor moves, erases,
/// inserts, deletes and scrolls of the CSI sequences programs commonly send; the alternate
/// screen of full-screen programs as a screen of its own. Colours, titles, modes and other
/// sequences are read and left out. Memory is the screen's cells whatever the stream's length:
/// lines scrolled off the top are dropped, and a sequence's parameters and strings are not kept.
/// Bytes may arrive in pieces cut anywhere, even inside a character or a sequence. A value; one
/// thread at a time.
class TerminalTranscript {
 public:
  /// A screen of `columns` x `rows` cells (each at least 1), blank, the cursor at the top left.
  TerminalTranscript(int columns, int rows);

  /// Takes the next bytes written to the terminal.
  void write(std::string_view bytes);
  /// The terminal took a new size: the text keeps to the top left, and when rows are lost the
  /// top ones go, so the cursor's line stays on screen (as xterm does).
  void resize(int columns, int rows);

  int columns() const noexcept { return columns_; }
  int rows() const noexcept { return rows_; }
  /// Each row of the screen shown now, top to bottom, in UTF-8 without its trailing blanks.
  std::vector<std::string> lines() const;
  /// The lowest row that is not blank, without its trailing blanks; empty on a blank screen.
  std::string lastLine() const;

 private:
  struct Screen {
    std::vector<char32_t> cells;
    int cursorRow = 0;
    int cursorColumn = 0;
    /// After a character went into the last column: the next one starts a new line first.
    bool wrapPending = false;
    int savedRow = 0;
    int savedColumn = 0;
  };
  enum class State { ground, escape, escapeCharset, csi, string, stringEscape };

  Screen& screen() noexcept { return alternateActive_ ? alternate_ : main_; }
  const Screen& screen() const noexcept { return alternateActive_ ? alternate_ : main_; }
  char32_t& cell(int row, int column) {
    return screen().cells[static_cast<std::size_t>(row) * columns_ + column];
  }
  std::string rowText(const Screen& screen, int row) const;

  void byte(unsigned char c);
  void character(char32_t c);
  void control(unsigned char c);
  void escapeFinal(unsigned char c);
  void csiFinal(unsigned char c);
  int parameter(std::size_t index, int otherwise) const;
  void setModes(bool on);

  void lineFeed();
  void reverseLineFeed();
  void moveTo(int row, int column);
  /// Moves rows [top, bottom] up by `count`, blank rows coming in at the bottom.
  void scrollUp(int top, int bottom, int count);
  void scrollDown(int top, int bottom, int count);
  void eraseCells(int row, int from, int to);
  void eraseRows(int from, int to);
  void switchScreen(bool alternate, bool saveCursor);

  int columns_;
  int rows_;
  Screen main_;
  Screen alternate_;
  bool alternateActive_ = false;
  int scrollTop_ = 0;
  int scrollBottom_ = 0;
  bool autoWrap_ = true;
  /// Characters push the rest of the line right rather than overwrite it (IRM).
  bool insertMode_ = false;

  State state_ = State::ground;
  std::vector<int> parameters_;
  char privateMarker_ = 0;
  bool intermediate_ = false;
  /// The UTF-8 character being put together, and how many bytes it still needs.
  char32_t pending_ = 0;
  int pendingBytes_ = 0;
};

}  // namespace brimble
