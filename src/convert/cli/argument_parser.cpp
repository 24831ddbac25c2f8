#include "convert/cli/argument_parser.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>

namespace keldo::convert {
namespace {

constexpr int kLargestNumber = 65500;
constexpr int kBestQuality = 100;
constexpr std::string_view kTemporaryPath = "registry:temporary-path=";
constexpr std::string_view kJpegSize = "jpeg:size=";

// No photo needs sharpening beyond these; that is left to ImageMagick, as are a negative gain or
// threshold and sharpening without a blur.
constexpr double kLargestRadius = 16;
constexpr double kLargestSigma = 8;
constexpr double kLargestGain = 50;
constexpr double kLargestThreshold = 1;
constexpr double kDefaultThreshold = 0.05;

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

bool IsLetter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

// "-", "-strip", "+profile". No option has a dot or a slash in it.
bool LooksLikeOption(std::string_view argument) {
  if (argument == "-") return true;
  if (argument.size() < 2 || (argument[0] != '-' && argument[0] != '+')) return false;
  return std::all_of(argument.begin() + 1, argument.end(),
                     [](char character) { return IsLetter(character) || character == '-'; });
}

bool HasJpegExtension(std::string_view path) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return false;
  std::string extension(name.substr(dot + 1));
  for (char& character : extension) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  return extension == "jpg" || extension == "jpeg" || extension == "jpe";
}

// Text that is parsed from its beginning.
class Text {
 public:
  explicit Text(std::string_view text) : rest_(text) {}

  [[nodiscard]] bool empty() const { return rest_.empty(); }

  bool Take(std::string_view beginning) {
    if (!rest_.starts_with(beginning)) return false;
    rest_.remove_prefix(beginning.size());
    return true;
  }

  // "1280": digits alone.
  std::optional<int> TakeNumber(int least, int most) {
    int number = 0;
    if (rest_.empty() || !IsDigit(rest_.front())) return std::nullopt;
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
    if (error != std::errc() || number < least || number > most) return std::nullopt;
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return number;
  }

  // "0.5", ".5", "2": no sign, no exponent.
  std::optional<double> TakeDecimal(double most) {
    double number = 0;
    if (rest_.empty() || !(IsDigit(rest_.front()) || rest_.front() == '.')) return std::nullopt;
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number,
                                              std::chars_format::fixed);
    if (error != std::errc() || number > most) return std::nullopt;
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return number;
  }

 private:
  std::string_view rest_;
};

// "1280x1280"
bool TakeSize(Text& text, int& width, int& height) {
  const std::optional<int> across = text.TakeNumber(1, kLargestNumber);
  if (!across || !text.Take("x")) return false;
  const std::optional<int> down = text.TakeNumber(1, kLargestNumber);
  if (!down) return false;
  width = *across;
  height = *down;
  return true;
}

// "1280x1280>" or "1280x1280>^"
bool ParseBox(const std::string& argument, Box& box) {
  Text text(argument);
  if (!TakeSize(text, box.width, box.height) || !text.Take(">")) return false;
  box.fill = text.Take("^");
  return text.empty();
}

bool ParseQuality(const std::string& argument, int& quality) {
  Text text(argument);
  const std::optional<int> number = text.TakeNumber(1, kBestQuality);
  if (!number || !text.empty()) return false;
  quality = *number;
  return true;
}

// "270", "-90", "+450"
bool ParseRotation(const std::string& argument, int& rotate) {
  constexpr int kQuarter = 90;
  constexpr int kFull = 360;
  Text text(argument);
  const bool counterclockwise = text.Take("-");
  if (!counterclockwise) text.Take("+");
  const std::optional<int> degrees = text.TakeNumber(0, kLargestNumber);
  if (!degrees || !text.empty() || *degrees % kQuarter != 0) return false;
  rotate = (counterclockwise ? kFull - *degrees % kFull : *degrees) % kFull;
  return true;
}

// "R", "RxS", "RxS+G" or "RxS+G+T"
std::optional<Sharpening> ParseSharpening(const std::string& argument) {
  Text text(argument);
  Sharpening sharpening;
  sharpening.threshold = kDefaultThreshold;
  const std::optional<double> radius = text.TakeDecimal(kLargestRadius);
  if (!radius) return std::nullopt;
  sharpening.radius = *radius;
  if (text.Take("x")) {
    const std::array<std::pair<double*, double>, 3> rest{
        {{&sharpening.sigma, kLargestSigma},
         {&sharpening.gain, kLargestGain},
         {&sharpening.threshold, kLargestThreshold}}};
    for (std::size_t i = 0; i < rest.size(); ++i) {
      if (i > 0 && !text.Take("+")) break;
      const std::optional<double> number = text.TakeDecimal(rest[i].second);
      if (!number) return std::nullopt;
      *rest[i].first = *number;
    }
  }
  if (!text.empty() || sharpening.sigma <= 0) return std::nullopt;
  return sharpening;
}

class Parser {
 public:
  explicit Parser(std::span<const std::string> arguments) : arguments_(arguments) {}

  std::optional<Command> Parse() {
    if (!ParseSettings() || !ParseInput() || !ParseGroups() || !AtEnd()) return std::nullopt;
    return std::move(command_);
  }

 private:
  [[nodiscard]] bool AtEnd() const { return next_ == arguments_.size(); }

  bool Take(std::string_view word) {
    if (AtEnd() || arguments_[next_] != word) return false;
    ++next_;
    return true;
  }

  // The words of an option without a value of its own.
  bool TakeAll(std::initializer_list<std::string_view> words) {
    return std::all_of(words.begin(), words.end(),
                       [this](std::string_view word) { return Take(word); });
  }

  // The value of the option `word`; null where another word comes next. Where `word` is the last
  // argument, Parse fails on what is left.
  const std::string* TakeValue(std::string_view word) {
    if (arguments_.size() - next_ < 2 || arguments_[next_] != word) return nullptr;
    next_ += 2;
    return &arguments_[next_ - 1];
  }

  const std::string* TakeName(std::vector<std::size_t>& places) {
    if (AtEnd() || arguments_[next_].empty() || LooksLikeOption(arguments_[next_])) return nullptr;
    places.push_back(next_);
    return &arguments_[next_++];
  }

  bool ParseSettings() {
    if (const std::string* define = TakeValue("-define")) {
      std::string_view value = *define;
      if (!value.starts_with(kTemporaryPath)) return false;
      value.remove_prefix(kTemporaryPath.size());
      if (!SetTemporaryPath(value)) return false;
    }
    return ParseThreadLimit();
  }

  // Each percent sign is doubled, since a single one would have a meaning.
  bool SetTemporaryPath(std::string_view escaped) {
    while (!escaped.empty()) {
      if (escaped.front() == '%') {
        escaped.remove_prefix(1);
        if (!escaped.starts_with('%')) return false;
      }
      command_.plan.temporary_path += escaped.front();
      escaped.remove_prefix(1);
    }
    return true;
  }

  bool ParseThreadLimit() {
    if (!Take("-limit")) return true;
    command_.plan.one_thread = TakeAll({"thread", "1"});
    return command_.plan.one_thread;
  }

  bool ParseInput() {
    const std::string* input = TakeName(command_.inputs);
    if (input == nullptr) return false;
    command_.plan.input = *input;
    if (!Take("-profile")) return true;
    const std::string* icc = TakeName(command_.inputs);
    if (icc == nullptr) return false;
    command_.plan.icc_profile = *icc;
    return true;
  }

  bool ParseGroups() {
    if (Take("(")) {
      if (!TakeAll({"-clone", "0"}) || !ParseStep("-write") || !TakeAll({")", "-delete", "0"}))
        return false;
      while (Take("(")) {
        if (!Take("+clone") || !ParseStep("-write") || !TakeAll({"+delete", ")"})) return false;
      }
    }
    return ParseStep("");
  }

  // The options of one thumbnail, and its output after the word `write`, if there is one.
  bool ParseStep(std::string_view write) {
    Step& step = command_.plan.steps.emplace_back();
    if (!ParseScaling(step)) return false;
    if (Take("+profile") && !Take("!icc,*")) return false;
    step.flatten = Take("-flatten");
    step.auto_orient = Take("-auto-orient");
    if (const std::string* degrees = TakeValue("-rotate")) {
      if (!ParseRotation(*degrees, step.rotate)) return false;
    }
    step.flop = Take("-flop");
    if (const std::string* geometry = TakeValue("-unsharp")) {
      step.unsharp = ParseSharpening(*geometry);
      if (!step.unsharp) return false;
    }
    if (Take("-colorspace") && !Take("sRGB") && !Take("YCbCr")) return false;
    if (!write.empty() && !Take(write)) return false;
    const std::string* output = TakeName(command_.outputs);
    if (output == nullptr || !HasJpegExtension(*output)) return false;
    step.output = *output;
    return true;
  }

  bool ParseScaling(Step& step) {
    if (const std::string* define = TakeValue("-define")) {
      // The thumbnails have their own sizes whatever this says; it only has to make sense.
      Text text(*define);
      int width = 0;
      int height = 0;
      if (!text.Take(kJpegSize) || !TakeSize(text, width, height) || !text.empty()) return false;
    }
    const std::string* box = TakeValue("-thumbnail");
    if (box == nullptr || !ParseBox(*box, step.box)) return false;
    const std::string* quality = TakeValue("-quality");
    return quality != nullptr && ParseQuality(*quality, step.quality);
  }

  std::span<const std::string> arguments_;
  std::size_t next_ = 0;
  Command command_;
};

}  // namespace

std::optional<Command> ParseCommand(std::span<const std::string> arguments) {
  return Parser(arguments).Parse();
}

}  // namespace keldo::convert
