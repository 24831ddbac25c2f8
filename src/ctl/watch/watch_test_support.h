// A watch over a temporary directory, with a stand-in for keldothumb.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "ctl/watch/watch_loop.h"
#include "support/temp_dir.h"

namespace keldo::ctl {

/// Runs keldothumbctl watch in its own process.
///
/// The stand-in makes the first thumbnail of each photo at its first run and the second one at the
/// next, as the program does with deferred phases. A photo that contains "broken" gets markers.
/// Runs do not end while the file "hold" exists.
class WatchTest : public ::testing::Test {
 public:
  WatchTest(const WatchTest&) = delete;
  WatchTest& operator=(const WatchTest&) = delete;

 protected:
  WatchTest();
  ~WatchTest() override;

  /// Starts the watch with these options before the directories.
  void Start(const std::vector<std::string>& options = {"--quiet-period", "0.3"});
  /// Sends a signal. Returns the exit status, or -1 if the watch ended otherwise or not in time.
  [[nodiscard]] int Stop(int signal);

  [[nodiscard]] std::string At(const std::string& name) const { return tree_ + "/" + name; }
  void Write(const std::string& name, const std::string& text = "a photo") const;
  /// Keeps runs from ending, and lets them end.
  void Hold() const;
  void LetGo() const;
  /// True when the stand-in made this file: "XL.jpg", "S.fail".
  [[nodiscard]] bool HasThumbnail(const std::string& directory, const std::string& photo,
                                  const std::string& kind) const;

  /// The directories of the runs so far, in order, relative to the tree ("" for the tree itself).
  [[nodiscard]] std::vector<std::string> Runs() const;
  /// What the watch has printed, on either stream.
  [[nodiscard]] std::string Output() const;
  /// True as soon as the condition holds; false if it does not hold for a long time.
  [[nodiscard]] static bool Eventually(const std::function<bool()>& condition);
  /// True when the watch prints this soon.
  [[nodiscard]] bool Says(const std::string& text) const;
  /// Waits until the watch has printed that it watches.
  void AwaitStart() const { ASSERT_TRUE(Says("watching ")) << Output(); }

  /// The settings of a watch over the tree, for tests that run the loop in a thread.
  [[nodiscard]] WatchSettings Settings() const;

  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] const std::string& tree() const { return tree_; }
  /// A second tree for the watch; none if empty.
  std::string other_tree_;

 private:
  [[nodiscard]] int RunWatch(const std::vector<std::string>& options) const;

  testing::TempDir temp_;
  std::string tree_ = temp_.path() + "/tree";
  std::string program_ = temp_.path() + "/keldothumb";
  std::string profile_ = temp_.path() + "/thumb.conf";
  std::string output_ = temp_.path() + "/output";
  pid_t pid_ = -1;
};

}  // namespace keldo::ctl
