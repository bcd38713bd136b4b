#include "host/json_text.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/input_files.h"

namespace host {
namespace {

std::atomic<int> g_depthLimit{kDefaultJsonDepth};

/// The JSON library's error id for a number too large for its type.
constexpr int kNumberOverflow = 406;

/// Length of the UTF-8 sequence starting at text[i], or 0 when it is not a valid one
/// (overlong forms, surrogates and code points above U+10FFFF included).
std::size_t Utf8Length(std::string_view text, std::size_t i) {
  const auto at = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char c = at(i);
  if (c < 0x80) return 1;
  std::size_t n = 0;
  unsigned char lo = 0x80, hi = 0xBF;  // range of the second byte
  if (c >= 0xC2 && c <= 0xDF) {
    n = 2;
  } else if (c >= 0xE0 && c <= 0xEF) {
    n = 3;
    if (c == 0xE0) lo = 0xA0;
    if (c == 0xED) hi = 0x9F;
  } else if (c >= 0xF0 && c <= 0xF4) {
    n = 4;
    if (c == 0xF0) lo = 0x90;
    if (c == 0xF4) hi = 0x8F;
  } else {
    return 0;
  }
  if (i + n > text.size()) return 0;
  if (at(i + 1) < lo || at(i + 1) > hi) return 0;
  for (std::size_t k = 2; k < n; ++k)
    if ((at(i + k) & 0xC0) != 0x80) return 0;
  return n;
}

std::string Hex(unsigned char c) {
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "0x%02X", c);
  return buffer;
}

struct ScanError {
  std::size_t offset = 0;
  std::string reason;
};

/// The check made on the text before the JSON library sees it: nesting depth and UTF-8, with the
/// byte where each goes wrong. Brackets inside strings do not count. It runs block by block and
/// keeps its state between blocks.
class Scanner {
 public:
  explicit Scanner(int maxDepth) : maxDepth_(std::max(maxDepth, 1)) {}

  /// Checks text[from, end) where `base` is the offset of text[0] in the whole text. Returns where
  /// the check stopped: `end`, or earlier when a UTF-8 sequence runs past `end` and more text
  /// follows (`last` false), so that the next block starts with it. Sets `error` on a problem.
  std::size_t Run(std::string_view text, std::size_t from, std::size_t base, bool last) {
    std::size_t i = from;
    while (i < text.size()) {
      if (skipNext_) {  // the byte after a backslash in a string
        skipNext_ = false;
        ++i;
        continue;
      }
      while (i < text.size() && kPlain[static_cast<unsigned char>(text[i])]) ++i;  // digits, blanks, commas, ..
      if (i == text.size()) break;
      const char c = text[i];
      if (static_cast<unsigned char>(c) >= 0x80) {
        const std::size_t n = SequenceLength(static_cast<unsigned char>(c));
        if (!last && n > 0 && i + n > text.size()) return i;
        if (Utf8Length(text, i) == 0) {
          error = ScanError{base + i, "invalid UTF-8 byte " + Hex(static_cast<unsigned char>(c)) +
                                          " (the file must be UTF-8 text)"};
          return i;
        }
        i += n;
        continue;
      }
      if (inString_) {
        if (c == '\\')
          skipNext_ = true;
        else if (c == '"')
          inString_ = false;
      } else if (c == '"') {
        inString_ = true;
      } else if (c == '[' || c == '{') {
        if (++depth_ > maxDepth_) {
          error = ScanError{base + i, "arrays and objects nested deeper than " + std::to_string(maxDepth_) + " levels"};
          return i;
        }
      } else if (c == ']' || c == '}') {
        --depth_;
      }
      ++i;
    }
    return i;
  }

  std::optional<ScanError> error;

 private:
  /// ASCII bytes that change nothing the scan keeps.
  static constexpr std::array<bool, 256> kPlain = [] {
    std::array<bool, 256> plain{};
    for (int c = 0; c < 0x80; ++c) plain[static_cast<std::size_t>(c)] = true;
    for (const unsigned char c : std::string_view("\"\\[]{}")) plain[c] = false;
    return plain;
  }();

  /// The length a lead byte announces (0 for a byte that cannot start a sequence).
  static std::size_t SequenceLength(unsigned char c) {
    if (c >= 0xC2 && c <= 0xDF) return 2;
    if (c >= 0xE0 && c <= 0xEF) return 3;
    if (c >= 0xF0 && c <= 0xF4) return 4;
    return 0;
  }

  int maxDepth_;
  int depth_ = 0;
  bool inString_ = false;
  bool skipNext_ = false;
};

/// Where `offset` lies in the document, as the members and elements that lead to it
/// ("nodes[0] 'Top'.translation[0]"): an element that is an object is followed by its "name" when
/// the name comes before the offset. Walks the text again, so it costs nothing until a value is
/// refused; the text before the offset is JSON (the library read it).
std::string PlaceOf(std::string_view text, std::size_t offset) {
  struct Level {
    bool array = false;
    std::size_t index = 0;
    std::string key, name;
    bool expectKey = true;  ///< objects: the next string is a key
  };
  std::vector<Level> levels;
  std::string lastKey;
  for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') {
      std::string value;
      for (++i; i < text.size() && text[i] != '"'; ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) ++i;
        value += text[i];
      }
      if (levels.empty() || levels.back().array) continue;
      Level& level = levels.back();
      if (level.expectKey) {
        level.key = value;
        level.expectKey = false;
      } else if (level.key == "name") {
        level.name = value;
      }
    } else if (c == '{' || c == '[') {
      levels.push_back(Level{c == '[', 0, {}, {}, true});
    } else if (c == '}' || c == ']') {
      if (!levels.empty()) levels.pop_back();
    } else if (c == ',' && !levels.empty()) {
      if (levels.back().array)
        ++levels.back().index;
      else
        levels.back().expectKey = true;
    }
  }
  std::string place;
  for (std::size_t k = 0; k < levels.size(); ++k) {
    const Level& level = levels[k];
    if (level.array) {
      place += "[" + std::to_string(level.index) + "]";
      if (k + 1 < levels.size() && !levels[k + 1].array && !levels[k + 1].name.empty())
        place += " '" + levels[k + 1].name + "'";
    } else if (!level.expectKey || k + 1 < levels.size()) {
      place += (place.empty() ? "" : ".") + level.key;
    }
  }
  return place;
}

/// The bytes of a JSON text for the parser: a whole string, or a file block by block. Each block
/// is scanned before the parser sees any byte of it; a problem the scan finds ends the bytes there.
class Source {
 public:
  Source(std::string_view text, int maxDepth) : scanner_(maxDepth), text_(text), data_(text.data()), eof_(true) {
    filled_ = text.size();
    limit_ = scanner_.Run(text, 0, 0, true);
    if (scanner_.error) limit_ = 0;
  }
  Source(int fd, int maxDepth) : scanner_(maxDepth), fd_(fd), buffer_(kBlock) { data_ = buffer_.data(); }

  /// Loads the next block when the current one is used up; true when no byte is left.
  bool AtEnd() { return pos_ < limit_ ? false : !Refill(); }
  char Get() const { return data_[pos_]; }
  void Advance() { ++pos_; }

  const std::optional<ScanError>& Problem() const { return scanner_.error; }
  const std::string& ReadError() const { return readError_; }
  /// Offset just past the bytes read so far.
  std::size_t ReadSoFar() const { return base_ + filled_; }
  /// True when `offset` lies at or beyond the end of the whole text.
  bool IsEnd(std::size_t offset) const { return eof_ && offset >= base_ + filled_; }

  TextPosition Position(std::size_t offset) const {
    if (fd_ < 0) return PositionOf(text_, offset);
    TextPosition p;
    std::vector<char> block(kBlock);
    for (std::size_t at = 0; at < offset;) {
      const ssize_t got = ::pread(fd_, block.data(), std::min(block.size(), offset - at), static_cast<off_t>(at));
      if (got <= 0) break;
      const TextPosition part = PositionOf(std::string_view(block.data(), static_cast<std::size_t>(got)),
                                           static_cast<std::size_t>(got));
      if (part.line > 1) {
        p.line += part.line - 1;
        p.column = part.column;
      } else {
        p.column += part.column - 1;
      }
      at += static_cast<std::size_t>(got);
    }
    return p;
  }

  /// The text before `offset` (read again from the file for a file source: only for messages).
  std::string Prefix(std::size_t offset) const {
    if (fd_ < 0) return std::string(text_.substr(0, std::min(offset, text_.size())));
    std::string out(offset, '\0');
    std::size_t at = 0;
    while (at < offset) {
      const ssize_t got = ::pread(fd_, out.data() + at, offset - at, static_cast<off_t>(at));
      if (got <= 0) break;
      at += static_cast<std::size_t>(got);
    }
    out.resize(at);
    return out;
  }

  char ByteAt(std::size_t offset) const {
    if (offset >= base_ && offset < base_ + filled_) return data_[offset - base_];
    char c = 0;
    if (fd_ >= 0) (void)::pread(fd_, &c, 1, static_cast<off_t>(offset));
    return c;
  }

 private:
  static constexpr std::size_t kBlock = std::size_t{1} << 20;

  bool Refill() {
    if (fd_ < 0 || scanner_.error || !readError_.empty() || (eof_ && limit_ == filled_)) return false;
    // The bytes after the limit start a UTF-8 sequence that the next read completes.
    std::memmove(buffer_.data(), buffer_.data() + limit_, filled_ - limit_);
    base_ += limit_;
    filled_ -= limit_;
    pos_ = limit_ = 0;
    while (!eof_ && filled_ < buffer_.size()) {
      const ssize_t got = ::read(fd_, buffer_.data() + filled_, buffer_.size() - filled_);
      if (got < 0) {
        if (errno == EINTR) continue;
        readError_ = OsErrorText(errno);
        return false;
      }
      if (got == 0) eof_ = true;
      filled_ += static_cast<std::size_t>(got);
    }
    limit_ = scanner_.Run(std::string_view(buffer_.data(), filled_), 0, base_, eof_);
    if (scanner_.error) limit_ = 0;
    return limit_ > 0;
  }

  Scanner scanner_;
  int fd_ = -1;
  std::string_view text_;
  std::vector<char> buffer_;
  const char* data_ = nullptr;
  std::size_t base_ = 0;    ///< offset of data_[0] in the text
  std::size_t filled_ = 0;  ///< bytes in data_
  std::size_t limit_ = 0;   ///< bytes of data_ scanned and free to read
  std::size_t pos_ = 0;
  bool eof_ = false;
  std::string readError_;
};

/// The parser's view of a source: an input iterator whose end is wherever the source ends.
class SourceIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = char;

  SourceIterator() = default;
  explicit SourceIterator(Source* source) : source_(source) {}
  char operator*() const { return source_->Get(); }
  SourceIterator& operator++() {
    source_->Advance();
    return *this;
  }
  SourceIterator operator++(int) {
    SourceIterator before = *this;
    source_->Advance();
    return before;
  }
  /// Only comparisons with the end (a default iterator) are made.
  friend bool operator==(const SourceIterator& a, const SourceIterator& b) {
    const Source* s = a.source_ != nullptr ? a.source_ : b.source_;
    return s == nullptr || const_cast<Source*>(s)->AtEnd();
  }

 private:
  Source* source_ = nullptr;
};

}  // namespace

/// Runs the parser over a source into a handler and words what went wrong.
class JsonReading {
 public:
  static vex::Result<void> Run(Source& source, const std::string& file, JsonEventHandler& handler) {
    const auto fail = [&](std::size_t offset, const std::string& reason) {
      const TextPosition p = source.Position(offset);
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      file + ":" + std::to_string(p.line) + ":" + std::to_string(p.column) + ": " + reason);
    };
    bool ok = false;
    try {
      ok = nlohmann::ordered_json::sax_parse(SourceIterator(&source), SourceIterator(), &handler,
                                             nlohmann::ordered_json::input_format_t::json, true);
    } catch (const std::bad_alloc&) {
      return VEX_FAIL(vex::ErrorKind::OutOfMemory, file + ": out of memory while reading JSON");
    } catch (const std::exception&) {
      // Syntax errors come as events; anything else is a value the library refuses.
      return fail(source.ReadSoFar(), "not valid JSON");
    }
    if (handler.stop) return std::unexpected(*handler.stop);
    if (!source.ReadError().empty())
      return VEX_FAIL(vex::ErrorKind::FileIO, file + ": cannot read: " + source.ReadError());
    if (const auto& problem = source.Problem()) return fail(problem->offset, problem->reason);
    if (ok && !handler.syntaxError_) return {};
    // The library's position counts the bytes read, the offending one included.
    const std::size_t position = handler.syntaxError_.value_or(source.ReadSoFar());
    const std::size_t offset = position > 0 ? position - 1 : 0;
    if (handler.syntaxErrorId_ == kNumberOverflow) {
      // The library stops after the number: the place is where the number starts.
      const std::string before = source.Prefix(position);
      const std::string& number = handler.lastToken_;
      const std::size_t start = std::min(before.rfind(number, offset), offset);
      const std::string place = PlaceOf(before, start);
      return fail(start, (place.empty() ? "" : place + ": ") + "the number " + number + " is beyond the range of a double");
    }
    std::string reason = "not valid JSON: ";
    if (source.IsEnd(offset)) {
      reason += "unexpected end of text";
    } else {
      const char c = source.ByteAt(offset);
      reason += "unexpected character " + Quoted(std::string_view(&c, 1));
    }
    return fail(offset, reason);
  }
};

vex::Result<void> ReadJsonEvents(std::string_view text, const std::string& file, JsonEventHandler& handler,
                                 int maxDepth) {
  Source source(text, maxDepth);
  return JsonReading::Run(source, file, handler);
}

vex::Result<void> ReadJsonFileEvents(const std::string& path, JsonEventHandler& handler, int maxDepth) {
  VEX_TRY(CheckInputFile(path));
  // Non-blocking: a FIFO swapped in after the check must not wait for a writer.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot read: " + OsErrorText(errno));
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  struct stat info {};
  if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
    return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot read: is not a regular file");
  Source source(fd, maxDepth);
  return JsonReading::Run(source, path, handler);
}

namespace {

/// Builds the document through the library's own DOM builder.
class Builder final : public JsonEventHandler {
 public:
  using Json = nlohmann::ordered_json;
  explicit Builder(Json& root) : dom_(root, false) {}
  bool null() override { return dom_.null(); }
  bool boolean(bool v) override { return dom_.boolean(v); }
  bool number_integer(number_integer_t v) override { return dom_.number_integer(v); }
  bool number_unsigned(number_unsigned_t v) override { return dom_.number_unsigned(v); }
  bool number_float(number_float_t v, const string_t& s) override { return dom_.number_float(v, s); }
  bool string(string_t& v) override { return dom_.string(v); }
  bool start_object(std::size_t n) override { return dom_.start_object(n); }
  bool key(string_t& v) override { return dom_.key(v); }
  bool end_object() override { return dom_.end_object(); }
  bool start_array(std::size_t n) override { return dom_.start_array(n); }
  bool end_array() override { return dom_.end_array(); }

 private:
  nlohmann::detail::json_sax_dom_parser<Json> dom_;
};

}  // namespace

int JsonDepthLimit() { return g_depthLimit.load(std::memory_order_relaxed); }
void SetJsonDepthLimit(int depth) { g_depthLimit.store(std::max(depth, 1), std::memory_order_relaxed); }

TextPosition PositionOf(std::string_view text, std::size_t offset) {
  TextPosition p;
  offset = std::min(offset, text.size());
  for (std::size_t i = 0; i < offset; ++i) {
    if (text[i] == '\n') {
      ++p.line;
      p.column = 1;
    } else {
      ++p.column;
    }
  }
  return p;
}

vex::Result<nlohmann::ordered_json> ParseJsonText(std::string_view text, const std::string& file, int maxDepth) {
  nlohmann::ordered_json root;
  Builder builder(root);
  VEX_TRY(ReadJsonEvents(text, file, builder, maxDepth));
  return root;
}

std::string DumpJsonText(const nlohmann::ordered_json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string DumpJsonText(const nlohmann::json& value, int indent) {
  return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace host
