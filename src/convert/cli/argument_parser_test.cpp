#include "convert/cli/argument_parser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using keldo::convert::Command;
using keldo::convert::ParseCommand;
using keldo::convert::Step;
using testing::ElementsAre;

using Arguments = std::vector<std::string>;

Arguments operator+(Arguments left, const Arguments& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// The options of a thumbnail as the command builder writes them.
Arguments Options(const std::string& side, const std::string& quality = "90") {
  return {"-define",    "jpeg:size=" + side + "x" + side,
          "-thumbnail", side + "x" + side + ">",
          "-quality",   quality,
          "+profile",   "!icc,*",
          "-flatten",   "-colorspace",
          "sRGB"};
}

// The whole command for so many thumbnails, "1.jpg" and so on, of 100, 200... pixels.
Arguments CommandFor(int count) {
  Arguments arguments{"in.jpg"};
  for (int i = 1; i < count; ++i) {
    const std::string number = std::to_string(i);
    const Arguments clone = i == 1 ? Arguments{"(", "-clone", "0"} : Arguments{"(", "+clone"};
    const Arguments end = i == 1 ? Arguments{")", "-delete", "0"} : Arguments{"+delete", ")"};
    arguments =
        arguments + clone + Options(number + "00") + Arguments{"-write", number + ".jpg"} + end;
  }
  const std::string last = std::to_string(count);
  return arguments + Options(last + "00") + Arguments{last + ".jpg"};
}

// One thumbnail of "in.jpg" with these options between -quality and the output.
std::optional<Command> ParseOptions(const Arguments& options) {
  return ParseCommand(Arguments{"in.jpg", "-thumbnail", "100x50>", "-quality", "90"} + options +
                      Arguments{"out.jpg"});
}

Step StepOf(const Arguments& options) {
  const std::optional<Command> command = ParseOptions(options);
  EXPECT_TRUE(command);
  return command ? command->plan.steps.at(0) : Step{};
}

TEST(ParseCommand, OneToSixThumbnails) {
  for (int count = 1; count <= 6; ++count) {
    const std::optional<Command> command = ParseCommand(CommandFor(count));
    ASSERT_TRUE(command) << count;
    ASSERT_EQ(command->plan.steps.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(command->plan.input, "in.jpg");
    for (int i = 1; i <= count; ++i) {
      const Step& step = command->plan.steps[static_cast<std::size_t>(i - 1)];
      EXPECT_EQ(step.output, std::to_string(i) + ".jpg");
      EXPECT_EQ(step.box.width, i * 100);
      EXPECT_EQ(step.box.height, i * 100);
      EXPECT_TRUE(step.flatten);
    }
  }
}

TEST(ParseCommand, FindsTheArgumentsThatAreFiles) {
  const Arguments arguments = CommandFor(3);
  const std::optional<Command> command = ParseCommand(arguments);
  ASSERT_TRUE(command);
  EXPECT_THAT(command->inputs, ElementsAre(0));
  Arguments outputs;
  for (const std::size_t place : command->outputs)
    outputs.push_back(arguments.at(place));
  EXPECT_THAT(outputs, ElementsAre("1.jpg", "2.jpg", "3.jpg"));

  const std::optional<Command> profile =
      ParseCommand(Arguments{"in.jpg", "-profile", "p.icc"} + Options("10") + Arguments{"o.jpg"});
  ASSERT_TRUE(profile);
  EXPECT_THAT(profile->inputs, ElementsAre(0, 2));
  EXPECT_EQ(profile->plan.icc_profile, "p.icc");
}

TEST(ParseCommand, ACommandMustBeComplete) {
  for (int count = 1; count <= 3; ++count) {
    const Arguments whole = CommandFor(count);
    for (std::size_t length = 0; length < whole.size(); ++length) {
      const Arguments part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
      EXPECT_FALSE(ParseCommand(part)) << count << " cut at " << length;
    }
    EXPECT_FALSE(ParseCommand(whole + Arguments{"more.jpg"}));
    EXPECT_FALSE(ParseCommand(whole + Arguments{""}));
  }
}

TEST(ParseCommand, NoArgumentMayBeMissingOrDouble) {
  const Arguments whole = Arguments{"-limit", "thread", "1"} + CommandFor(3);
  for (std::size_t i = 0; i < whole.size(); ++i) {
    Arguments twice = whole;
    twice.insert(twice.begin() + static_cast<std::ptrdiff_t>(i), whole[i]);
    // "-flatten" alone has nothing that belongs to it.
    EXPECT_FALSE(ParseCommand(twice)) << whole[i];
    if (whole[i] == "-flatten") continue;
    Arguments without = whole;
    without.erase(without.begin() + static_cast<std::ptrdiff_t>(i));
    EXPECT_FALSE(ParseCommand(without)) << whole[i];
  }
}

TEST(ParseCommand, Settings) {
  const Arguments rest = Arguments{"in.jpg"} + Options("10") + Arguments{"o.jpg"};
  const auto parse = [&](const Arguments& settings) { return ParseCommand(settings + rest); };
  const auto command =
      parse({"-define", "registry:temporary-path=/tmp/100%% a", "-limit", "thread", "1"});
  ASSERT_TRUE(command);
  EXPECT_EQ(command->plan.temporary_path, "/tmp/100% a");
  EXPECT_TRUE(command->plan.one_thread);
  EXPECT_FALSE(parse({})->plan.one_thread);
  EXPECT_TRUE(parse({"-define", "registry:temporary-path="}));

  EXPECT_FALSE(parse({"-define", "registry:temporary-path=/tmp/%d"}));
  EXPECT_FALSE(parse({"-define", "registry:temporary-path=/tmp/%"}));
  EXPECT_FALSE(parse({"-define", "registry:other=/tmp"}));
  EXPECT_FALSE(parse({"-limit", "thread", "2"}));
  EXPECT_FALSE(parse({"-limit", "memory", "1"}));
  EXPECT_FALSE(parse({"-limit", "thread", "1", "-define", "registry:temporary-path=/tmp"}));
}

TEST(ParseCommand, Boxes) {
  const auto parse = [](const std::string& box) {
    return ParseCommand(Arguments{"i.jpg", "-thumbnail", box, "-quality", "1", "o.jpg"});
  };
  EXPECT_FALSE(parse("640x480>")->plan.steps[0].box.fill);
  EXPECT_TRUE(parse("640x480>^")->plan.steps[0].box.fill);
  EXPECT_EQ(parse("65500x1>")->plan.steps[0].box.width, 65500);
  for (const char* box :
       {"640x480", "640x480^>", "640x480>>", "640x480>^ ", "640x>", "x480>", "640>", "0x10>",
        "65501x1>", "-1x1>", "+1x1>", "1.5x1>", " 1x1>", "1x1>^^", "50%>", "99999999999x1>", ""}) {
    EXPECT_FALSE(parse(box)) << box;
  }
}

TEST(ParseCommand, Quality) {
  const auto parse = [](const Arguments& quality) {
    return ParseCommand(Arguments{"i.jpg", "-thumbnail", "1x1>"} + quality + Arguments{"o.jpg"});
  };
  EXPECT_EQ(parse({"-quality", "1"})->plan.steps[0].quality, 1);
  EXPECT_EQ(parse({"-quality", "100"})->plan.steps[0].quality, 100);
  for (const char* quality : {"0", "101", "9x", "9.5", "-9", "+9", "", "90%"})
    EXPECT_FALSE(parse({"-quality", quality})) << quality;
  // A JPEG source's own quality would count.
  EXPECT_FALSE(parse({}));
}

TEST(ParseCommand, Rotation) {
  const std::vector<std::pair<std::string, int>> table{
      {"0", 0},     {"90", 90},  {"180", 180}, {"270", 270},  {"360", 0}, {"450", 90},
      {"-90", 270}, {"-360", 0}, {"-0", 0},    {"-450", 270}, {"+90", 90}};
  for (const auto& [text, degrees] : table)
    EXPECT_EQ(StepOf({"-rotate", text}).rotate, degrees) << text;
  for (const char* text : {"45", "90>", "90.0", "", "-", "--90", "9 0", "90 "})
    EXPECT_FALSE(ParseOptions({"-rotate", text})) << text;
}

TEST(ParseCommand, Sharpening) {
  struct Row {
    const char* text;
    double radius, sigma, gain, threshold;
  };
  for (const Row& row :
       {Row{"0.5x0.5+1.25+0", 0.5, 0.5, 1.25, 0}, Row{"0x1+2+0.1", 0, 1, 2, 0.1},
        Row{"3", 3, 1, 1, 0.05}, Row{"1x2", 1, 2, 1, 0.05}, Row{".5x.5+1", 0.5, 0.5, 1, 0.05}}) {
    const Step step = StepOf({"-unsharp", row.text});
    ASSERT_TRUE(step.unsharp) << row.text;
    EXPECT_EQ(step.unsharp->radius, row.radius) << row.text;
    EXPECT_EQ(step.unsharp->sigma, row.sigma) << row.text;
    EXPECT_EQ(step.unsharp->gain, row.gain) << row.text;
    EXPECT_EQ(step.unsharp->threshold, row.threshold) << row.text;
  }
  EXPECT_FALSE(StepOf({}).unsharp);
  for (const char* text :
       {"",      "x2",       "1+2",      "1x",        "1x2+",    "1x2-1",   "1x2+1-0.1", "1x0",
        "50%x1", "1x2+100%", "1x2+1+5%", "1x2+1+0+0", "1x2 ",    "1e1x2",   "nan",       "infx1",
        "1,2",   "17x1",     "1x9",      "1x1+51",    "1x1+1+2", "1x1+nan", "-1x1",      "+1x1"}) {
    EXPECT_FALSE(ParseOptions({"-unsharp", text})) << text;
  }
}

TEST(ParseCommand, OptionsMustBeInOrder) {
  const Step all = StepOf({"+profile", "!icc,*", "-flatten", "-auto-orient", "-rotate", "90",
                           "-flop", "-unsharp", "1x1+1+0", "-colorspace", "YCbCr"});
  EXPECT_TRUE(all.flatten && all.auto_orient && all.flop && all.unsharp);
  EXPECT_EQ(all.rotate, 90);
  const Step none = StepOf({});
  EXPECT_FALSE(none.flatten || none.auto_orient || none.flop || none.unsharp);

  const Arguments words{"-flatten", "-auto-orient", "-flop"};
  for (std::size_t first = 0; first < words.size(); ++first) {
    for (std::size_t second = 0; second <= first; ++second)
      EXPECT_FALSE(ParseOptions({words[first], words[second]})) << words[first] << words[second];
  }
  EXPECT_FALSE(ParseOptions({"-flop", "-rotate", "90"}));
  EXPECT_FALSE(ParseOptions({"-colorspace", "sRGB", "-unsharp", "1x1+1+0"}));
}

TEST(ParseCommand, OtherOptionsAreNotUnderstood) {
  const std::vector<Arguments> table{{"-strip"},
                                     {"-resize", "10x10"},
                                     {"-colorspace", "Gray"},
                                     {"-colorspace", "srgb"},
                                     {"+profile", "*"},
                                     {"+flatten"},
                                     {"-define", "jpeg:size=1x1"},
                                     {"-quality", "3"},
                                     {"--flatten"},
                                     {"-Flatten"},
                                     {"other.jpg"}};
  for (const Arguments& options : table)
    EXPECT_FALSE(ParseOptions(options)) << options.front();
  const auto define = [](const std::string& value) {
    return ParseCommand(
        Arguments{"i.jpg", "-define", value, "-thumbnail", "1x1>", "-quality", "1", "o.jpg"});
  };
  EXPECT_TRUE(define("jpeg:size=12x34"));
  for (const char* value : {"jpeg:size=12", "jpeg:size=12x34>", "jpeg:size=0x1", "png:size=1x1"})
    EXPECT_FALSE(define(value)) << value;
  for (const Arguments& arguments :
       {Arguments{}, Arguments{"-version"}, Arguments{"-list", "format"}, Arguments{"in.jpg"},
        Arguments{"in.jpg", "out.jpg"}}) {
    EXPECT_FALSE(ParseCommand(arguments));
  }
}

TEST(ParseCommand, FileNamesAreLiteral) {
  for (const std::string name : {"a b.jpg", "a\nb.jpg", "%d.jpg", "a[1].jpg", "png:a.jpg", "-x.jpg",
                                 "+x.jpg", "@a.jpg", "*.jpg", "\xff\xfe.jpg", "'\".jpg",
                                 "/100%/-strip.jpg", "~.jpg", "--.jpg", "./-strip.jpg"}) {
    const std::optional<Command> command =
        ParseCommand(Arguments{name, "-profile", name} + Options("10") + Arguments{name});
    ASSERT_TRUE(command) << name;
    EXPECT_EQ(command->plan.input, name);
    EXPECT_EQ(command->plan.icc_profile, name);
    EXPECT_EQ(command->plan.steps[0].output, name);
  }
  for (const std::string input : {"(", "90", "@list", "./-strip", "photo[0]", "fd:3", "-photo[0]"})
    EXPECT_TRUE(ParseCommand(Arguments{input} + Options("10") + Arguments{"o.jpg"})) << input;
  for (const std::string option : {"-", "", "-strip", "+strip", "-auto-orient", "--", "-limit"})
    EXPECT_FALSE(ParseCommand(Arguments{option} + Options("10") + Arguments{"o.jpg"})) << option;
}

TEST(ParseCommand, OutputsAreJpegFiles) {
  const auto parse = [](const std::string& output) {
    return ParseCommand(Arguments{"in.jpg"} + Options("10") + Arguments{output}).has_value();
  };
  for (const char* output : {"a.jpg", "a.JPG", "a.jpeg", "a.Jpe", "/x.y/.jpg", "a.png.jpg"})
    EXPECT_TRUE(parse(output)) << output;
  for (const char* output : {"a.png", "a", "-", "null:", "/x.jpg/a", "a.jpg.", "a.jpg[0]", "jpg"})
    EXPECT_FALSE(parse(output)) << output;
}

}  // namespace
