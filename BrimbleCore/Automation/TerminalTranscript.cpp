#include "BrimbleCore/Automation/TerminalTranscript.h"

#include <algorithm>

namespace brimble {
namespace {

constexpr char32_t kBlank = U' ';
// The right half of a character two cells wide: it holds no text of its own.
constexpr char32_t kWideTail = 0xFFFFFFFF;
constexpr char32_t kUnreadable = 0xFFFD;
constexpr int kMaxParameter = 9999;
constexpr std::size_t kMaxParameters = 32;

// Marks that ride on the character before them; a terminal gives them no cell.
bool zeroWidth(char32_t c) {
  return (c >= 0x0300 && c <= 0x036F) || (c >= 0x1AB0 && c <= 0x1AFF) ||
         (c >= 0x1DC0 && c <= 0x1DFF) || (c >= 0x200B && c <= 0x200F) ||
         (c >= 0x20D0 && c <= 0x20FF) || (c >= 0xFE00 && c <= 0xFE0F) ||
         (c >= 0xFE20 && c <= 0xFE2F);
}

// East Asian wide and full-width characters, and emoji: two cells in a terminal.
bool twoCellsWide(char32_t c) {
  return (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0x303E) ||
         (c >= 0x3041 && c <= 0xA4CF) || (c >= 0xAC00 && c <= 0xD7A3) ||
         (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFE30 && c <= 0xFE4F) ||
         (c >= 0xFF00 && c <= 0xFF60) || (c >= 0xFFE0 && c <= 0xFFE6) ||
         (c >= 0x1F300 && c <= 0x1F64F) || (c >= 0x1F900 && c <= 0x1F9FF) ||
         (c >= 0x20000 && c <= 0x3FFFD);
}

void appendUTF8(std::string& text, char32_t c) {
  if (c < 0x80) {
    text += static_cast<char>(c);
  } else if (c < 0x800) {
    text += static_cast<char>(0xC0 | (c >> 6));
    text += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    text += static_cast<char>(0xE0 | (c >> 12));
    text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    text += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    text += static_cast<char>(0xF0 | (c >> 18));
    text += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    text += static_cast<char>(0x80 | (c & 0x3F));
  }
}

}  // namespace

TerminalTranscript::TerminalTranscript(int columns, int rows)
    : columns_(std::max(columns, 1)), rows_(std::max(rows, 1)), scrollBottom_(rows_ - 1) {
  const auto cells = static_cast<std::size_t>(columns_) * rows_;
  main_.cells.assign(cells, kBlank);
  alternate_.cells.assign(cells, kBlank);
}

void TerminalTranscript::write(std::string_view bytes) {
  for (const char c : bytes) {
    byte(static_cast<unsigned char>(c));
  }
}

void TerminalTranscript::resize(int columns, int rows) {
  columns = std::max(columns, 1);
  rows = std::max(rows, 1);
  if (columns == columns_ && rows == rows_) {
    return;
  }
  for (Screen* each : {&main_, &alternate_}) {
    Screen& old = *each;
    std::vector<char32_t> cells(static_cast<std::size_t>(columns) * rows, kBlank);
    const int dropped = std::max(0, old.cursorRow - (rows - 1));
    const int keptColumns = std::min(columns, columns_);
    for (int row = 0; row < rows && row + dropped < rows_; ++row) {
      const auto from = old.cells.begin() + static_cast<std::ptrdiff_t>(row + dropped) * columns_;
      std::copy(from, from + keptColumns,
                cells.begin() + static_cast<std::ptrdiff_t>(row) * columns);
    }
    old.cells = std::move(cells);
    old.cursorRow = std::clamp(old.cursorRow - dropped, 0, rows - 1);
    old.cursorColumn = std::clamp(old.cursorColumn, 0, columns - 1);
    old.savedRow = std::clamp(old.savedRow - dropped, 0, rows - 1);
    old.savedColumn = std::clamp(old.savedColumn, 0, columns - 1);
    old.wrapPending = false;
  }
  columns_ = columns;
  rows_ = rows;
  scrollTop_ = 0;
  scrollBottom_ = rows_ - 1;
}

std::string TerminalTranscript::rowText(const Screen& shown, int row) const {
  std::string text;
  const auto first = shown.cells.begin() + static_cast<std::ptrdiff_t>(row) * columns_;
  for (auto it = first; it != first + columns_; ++it) {
    if (*it != kWideTail) {
      appendUTF8(text, *it);
    }
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::vector<std::string> TerminalTranscript::lines() const {
  std::vector<std::string> result;
  result.reserve(static_cast<std::size_t>(rows_));
  for (int row = 0; row < rows_; ++row) {
    result.push_back(rowText(screen(), row));
  }
  return result;
}

std::string TerminalTranscript::lastLine() const {
  for (int row = rows_ - 1; row >= 0; --row) {
    std::string text = rowText(screen(), row);
    if (!text.empty()) {
      return text;
    }
  }
  return {};
}

// --- Bytes ----------------------------------------------------------------------------------

void TerminalTranscript::byte(unsigned char c) {
  if (state_ == State::string) {
    // An operating-system command (a title, a colour) ends with BEL or ESC \; others with the
    // latter. Nothing of it is shown.
    if (c == 0x07) {
      state_ = State::ground;
    } else if (c == 0x1B) {
      state_ = State::stringEscape;
    }
    return;
  }
  if (state_ == State::stringEscape) {
    state_ = State::ground;
    if (c == '\\') {
      return;
    }
    // Any other sequence cuts the string short and is read as it stands.
    state_ = State::escape;
  }
  if (c == 0x1B) {
    if (pendingBytes_ > 0) {
      pendingBytes_ = 0;
      character(kUnreadable);
    }
    state_ = State::escape;
    parameters_.clear();
    privateMarker_ = 0;
    intermediate_ = false;
    return;
  }
  if (c < 0x20 || c == 0x7F) {
    if (pendingBytes_ > 0) {
      pendingBytes_ = 0;
      character(kUnreadable);
    }
    // Controls act in the middle of a sequence too; CAN and SUB cancel it.
    if (c == 0x18 || c == 0x1A) {
      state_ = State::ground;
    } else if (c != 0x7F) {
      control(c);
    }
    return;
  }
  switch (state_) {
    case State::ground:
      break;
    case State::escape:
      if (c == '[') {
        state_ = State::csi;
      } else if (c == ']' || c == 'P' || c == 'X' || c == '^' || c == '_') {
        state_ = State::string;
      } else if (c >= 0x20 && c <= 0x2F) {
        // A character set, a line size or a conformance level: one more byte names it.
        state_ = State::escapeCharset;
      } else {
        state_ = State::ground;
        escapeFinal(c);
      }
      return;
    case State::escapeCharset:
      state_ = State::ground;
      return;
    case State::csi:
      if (c >= '0' && c <= '9') {
        if (parameters_.empty()) {
          parameters_.push_back(0);
        }
        int& value = parameters_.back();
        value = std::min(value * 10 + (c - '0'), kMaxParameter);
      } else if (c == ';' || c == ':') {
        if (parameters_.empty()) {
          parameters_.push_back(0);
        }
        if (parameters_.size() < kMaxParameters) {
          parameters_.push_back(0);
        }
      } else if (c >= '<' && c <= '?') {
        privateMarker_ = static_cast<char>(c);
      } else if (c >= 0x20 && c <= 0x2F) {
        intermediate_ = true;
      } else if (c >= 0x40 && c <= 0x7E) {
        state_ = State::ground;
        if (!intermediate_) {
          csiFinal(c);
        }
      }
      return;
    case State::string:
    case State::stringEscape:
      return;
  }

  // UTF-8: a lead byte says how many continuation bytes follow; anything out of place is
  // shown as U+FFFD, as terminals do.
  if (pendingBytes_ > 0) {
    if ((c & 0xC0) == 0x80) {
      pending_ = (pending_ << 6) | (c & 0x3F);
      if (--pendingBytes_ == 0) {
        const bool valid = pending_ <= 0x10FFFF && (pending_ < 0xD800 || pending_ > 0xDFFF);
        character(valid ? pending_ : kUnreadable);
      }
      return;
    }
    pendingBytes_ = 0;
    character(kUnreadable);
  }
  if (c < 0x80) {
    character(c);
  } else if (c >= 0xC2 && c <= 0xDF) {
    pending_ = c & 0x1F;
    pendingBytes_ = 1;
  } else if (c >= 0xE0 && c <= 0xEF) {
    pending_ = c & 0x0F;
    pendingBytes_ = 2;
  } else if (c >= 0xF0 && c <= 0xF4) {
    pending_ = c & 0x07;
    pendingBytes_ = 3;
  } else {
    character(kUnreadable);
  }
}

void TerminalTranscript::character(char32_t c) {
  if (zeroWidth(c)) {
    return;
  }
  const int width = twoCellsWide(c) ? 2 : 1;
  Screen& s = screen();
  if (s.wrapPending && autoWrap_) {
    s.cursorColumn = 0;
    lineFeed();
  }
  s.wrapPending = false;
  if (width == 2 && s.cursorColumn == columns_ - 1 && columns_ > 1) {
    // No room for both halves: the character goes to the next line.
    cell(s.cursorRow, s.cursorColumn) = kBlank;
    if (!autoWrap_) {
      return;
    }
    s.cursorColumn = 0;
    lineFeed();
  }
  if (insertMode_) {
    const auto row = s.cells.begin() + static_cast<std::ptrdiff_t>(s.cursorRow) * columns_;
    const int shift = std::min(width, columns_ - s.cursorColumn);
    std::move_backward(row + s.cursorColumn, row + columns_ - shift, row + columns_);
  }
  cell(s.cursorRow, s.cursorColumn) = c;
  if (width == 2 && s.cursorColumn + 1 < columns_) {
    cell(s.cursorRow, s.cursorColumn + 1) = kWideTail;
  }
  const int next = s.cursorColumn + width;
  if (next >= columns_) {
    s.cursorColumn = columns_ - 1;
    s.wrapPending = autoWrap_;
  } else {
    s.cursorColumn = next;
  }
}

void TerminalTranscript::control(unsigned char c) {
  Screen& s = screen();
  switch (c) {
    case '\b':
      if (s.cursorColumn > 0) {
        --s.cursorColumn;
      }
      s.wrapPending = false;
      break;
    case '\t':
      s.cursorColumn = std::min((s.cursorColumn / 8 + 1) * 8, columns_ - 1);
      s.wrapPending = false;
      break;
    case '\n':
    case '\v':
    case '\f':
      lineFeed();
      break;
    case '\r':
      s.cursorColumn = 0;
      s.wrapPending = false;
      break;
    default:
      break;  // the bell, character set shifts and the like show nothing
  }
}

void TerminalTranscript::escapeFinal(unsigned char c) {
  Screen& s = screen();
  switch (c) {
    case '7':
      s.savedRow = s.cursorRow;
      s.savedColumn = s.cursorColumn;
      break;
    case '8':
      moveTo(s.savedRow, s.savedColumn);
      break;
    case 'D':
      lineFeed();
      break;
    case 'E':
      s.cursorColumn = 0;
      lineFeed();
      break;
    case 'M':
      reverseLineFeed();
      break;
    case 'c':
      *this = TerminalTranscript(columns_, rows_);
      break;
    default:
      break;  // keypad modes and the like
  }
}

int TerminalTranscript::parameter(std::size_t index, int otherwise) const {
  return index < parameters_.size() && parameters_[index] != 0 ? parameters_[index] : otherwise;
}

void TerminalTranscript::csiFinal(unsigned char c) {
  if (privateMarker_ != 0) {
    if (privateMarker_ == '?' && (c == 'h' || c == 'l')) {
      setModes(c == 'h');
    }
    return;  // other private sequences ask or set what the text does not show
  }
  Screen& s = screen();
  const int n = parameter(0, 1);
  switch (c) {
    case 'A':
      moveTo(s.cursorRow - n, s.cursorColumn);
      break;
    case 'B':
    case 'e':
      moveTo(s.cursorRow + n, s.cursorColumn);
      break;
    case 'C':
    case 'a':
      moveTo(s.cursorRow, s.cursorColumn + n);
      break;
    case 'D':
      moveTo(s.cursorRow, s.cursorColumn - n);
      break;
    case 'E':
      moveTo(s.cursorRow + n, 0);
      break;
    case 'F':
      moveTo(s.cursorRow - n, 0);
      break;
    case 'G':
    case '`':
      moveTo(s.cursorRow, n - 1);
      break;
    case 'H':
    case 'f':
      moveTo(parameter(0, 1) - 1, parameter(1, 1) - 1);
      break;
    case 'd':
      moveTo(n - 1, s.cursorColumn);
      break;
    case 'J':
      switch (parameter(0, 0)) {
        case 0:
          eraseCells(s.cursorRow, s.cursorColumn, columns_);
          eraseRows(s.cursorRow + 1, rows_ - 1);
          break;
        case 1:
          eraseRows(0, s.cursorRow - 1);
          eraseCells(s.cursorRow, 0, s.cursorColumn + 1);
          break;
        case 2:
          eraseRows(0, rows_ - 1);
          break;
        default:
          break;  // 3 erases the lines scrolled off, which are not kept
      }
      break;
    case 'K':
      switch (parameter(0, 0)) {
        case 0:
          eraseCells(s.cursorRow, s.cursorColumn, columns_);
          break;
        case 1:
          eraseCells(s.cursorRow, 0, s.cursorColumn + 1);
          break;
        case 2:
          eraseCells(s.cursorRow, 0, columns_);
          break;
        default:
          break;
      }
      break;
    case 'X':
      eraseCells(s.cursorRow, s.cursorColumn, std::min(columns_, s.cursorColumn + n));
      break;
    case '@': {
      const auto row = s.cells.begin() + static_cast<std::ptrdiff_t>(s.cursorRow) * columns_;
      const int count = std::min(n, columns_ - s.cursorColumn);
      std::move_backward(row + s.cursorColumn, row + columns_ - count, row + columns_);
      std::fill(row + s.cursorColumn, row + s.cursorColumn + count, kBlank);
      s.wrapPending = false;
      break;
    }
    case 'P': {
      const auto row = s.cells.begin() + static_cast<std::ptrdiff_t>(s.cursorRow) * columns_;
      const int count = std::min(n, columns_ - s.cursorColumn);
      std::move(row + s.cursorColumn + count, row + columns_, row + s.cursorColumn);
      std::fill(row + columns_ - count, row + columns_, kBlank);
      s.wrapPending = false;
      break;
    }
    case 'L':
      if (s.cursorRow >= scrollTop_ && s.cursorRow <= scrollBottom_) {
        scrollDown(s.cursorRow, scrollBottom_, n);
        s.cursorColumn = 0;
        s.wrapPending = false;
      }
      break;
    case 'M':
      if (s.cursorRow >= scrollTop_ && s.cursorRow <= scrollBottom_) {
        scrollUp(s.cursorRow, scrollBottom_, n);
        s.cursorColumn = 0;
        s.wrapPending = false;
      }
      break;
    case 'S':
      scrollUp(scrollTop_, scrollBottom_, n);
      break;
    case 'T':
      if (parameters_.size() <= 1) {  // with more, it starts a mouse highlight
        scrollDown(scrollTop_, scrollBottom_, n);
      }
      break;
    case 'h':
    case 'l':
      if (std::find(parameters_.begin(), parameters_.end(), 4) != parameters_.end()) {
        insertMode_ = c == 'h';
      }
      break;
    case 'r': {
      const int top = parameter(0, 1) - 1;
      const int bottom = std::min(parameter(1, rows_), rows_) - 1;
      if (top < bottom) {
        scrollTop_ = top;
        scrollBottom_ = bottom;
        moveTo(0, 0);
      }
      break;
    }
    case 's':
      s.savedRow = s.cursorRow;
      s.savedColumn = s.cursorColumn;
      break;
    case 'u':
      moveTo(s.savedRow, s.savedColumn);
      break;
    default:
      break;  // colours and attributes (m), reports, window operations
  }
}

void TerminalTranscript::setModes(bool on) {
  for (const int mode : parameters_) {
    switch (mode) {
      case 7:
        autoWrap_ = on;
        break;
      case 47:
      case 1047:
        switchScreen(on, false);
        break;
      case 1049:
        switchScreen(on, true);
        break;
      default:
        break;
    }
  }
}

// --- The screen -----------------------------------------------------------------------------

void TerminalTranscript::lineFeed() {
  Screen& s = screen();
  s.wrapPending = false;
  if (s.cursorRow == scrollBottom_) {
    scrollUp(scrollTop_, scrollBottom_, 1);
  } else if (s.cursorRow < rows_ - 1) {
    ++s.cursorRow;
  }
}

void TerminalTranscript::reverseLineFeed() {
  Screen& s = screen();
  s.wrapPending = false;
  if (s.cursorRow == scrollTop_) {
    scrollDown(scrollTop_, scrollBottom_, 1);
  } else if (s.cursorRow > 0) {
    --s.cursorRow;
  }
}

void TerminalTranscript::moveTo(int row, int column) {
  Screen& s = screen();
  s.cursorRow = std::clamp(row, 0, rows_ - 1);
  s.cursorColumn = std::clamp(column, 0, columns_ - 1);
  s.wrapPending = false;
}

void TerminalTranscript::scrollUp(int top, int bottom, int count) {
  std::vector<char32_t>& cells = screen().cells;
  count = std::min(count, bottom - top + 1);
  const auto rowAt = [&](int row) {
    return cells.begin() + static_cast<std::ptrdiff_t>(row) * columns_;
  };
  std::move(rowAt(top + count), rowAt(bottom + 1), rowAt(top));
  std::fill(rowAt(bottom + 1 - count), rowAt(bottom + 1), kBlank);
}

void TerminalTranscript::scrollDown(int top, int bottom, int count) {
  std::vector<char32_t>& cells = screen().cells;
  count = std::min(count, bottom - top + 1);
  const auto rowAt = [&](int row) {
    return cells.begin() + static_cast<std::ptrdiff_t>(row) * columns_;
  };
  std::move_backward(rowAt(top), rowAt(bottom + 1 - count), rowAt(bottom + 1));
  std::fill(rowAt(top), rowAt(top + count), kBlank);
}

void TerminalTranscript::eraseCells(int row, int from, int to) {
  from = std::clamp(from, 0, columns_);
  to = std::clamp(to, from, columns_);
  const auto first = screen().cells.begin() + static_cast<std::ptrdiff_t>(row) * columns_;
  std::fill(first + from, first + to, kBlank);
  screen().wrapPending = false;
}

void TerminalTranscript::eraseRows(int from, int to) {
  for (int row = std::max(from, 0); row <= std::min(to, rows_ - 1); ++row) {
    eraseCells(row, 0, columns_);
  }
}

void TerminalTranscript::switchScreen(bool alternate, bool saveCursor) {
  if (alternate == alternateActive_) {
    return;
  }
  if (alternate) {
    if (saveCursor) {
      main_.savedRow = main_.cursorRow;
      main_.savedColumn = main_.cursorColumn;
    }
    // A full-screen program starts on a blank screen, the cursor where it was.
    std::fill(alternate_.cells.begin(), alternate_.cells.end(), kBlank);
    alternate_.cursorRow = main_.cursorRow;
    alternate_.cursorColumn = main_.cursorColumn;
    alternate_.wrapPending = false;
    alternateActive_ = true;
  } else {
    alternateActive_ = false;
    if (saveCursor) {
      moveTo(main_.savedRow, main_.savedColumn);
    }
  }
}

}  // namespace brimble
