#include "ctl/watch/watch_loop.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ctl/watch/watch_test_support.h"
#include "util/handles.h"

namespace keldo::ctl {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Options = std::vector<std::string>;

// No test waits this long: nothing must happen before it has passed.
const Options kNeverQuiet{"--quiet-period", "1000"};

// A watch in a thread, for settings that the command line does not have.
class ThreadedWatch {
 public:
  ThreadedWatch(const WatchSettings& settings, Inotify& inotify)
      : thread_([this, settings, &inotify] {
          WatchLoop(settings, inotify, console_, stop_.get()).Run();
        }) {}
  ~ThreadedWatch() { static_cast<void>(Stop()); }
  ThreadedWatch(const ThreadedWatch&) = delete;
  ThreadedWatch& operator=(const ThreadedWatch&) = delete;

  // Ends the watch and returns what it printed on the error stream.
  [[nodiscard]] std::string Stop() {
    EXPECT_EQ(eventfd_write(stop_.get(), 1), 0);
    if (thread_.joinable()) thread_.join();
    return err_.str();
  }

 private:
  UniqueFd stop_{eventfd(0, EFD_CLOEXEC)};
  std::ostringstream out_;
  std::ostringstream err_;
  Console console_{out_, err_};
  std::thread thread_;
};

// Provides only one watch.
class OneWatch : public Inotify {
 public:
  int Add(const std::string& directory) override {
    if (first_.empty()) first_ = directory;
    if (directory == first_) return Inotify::Add(directory);
    errno = ENOSPC;
    return -1;
  }

 private:
  std::string first_;
};

std::string TextOfFile(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

long CountOf(const std::vector<std::string>& runs, const std::string& directory) {
  return std::count(runs.begin(), runs.end(), directory);
}

TEST_F(WatchTest, MakesWhatIsMissingAtTheStartWithoutAQuietPeriod) {
  Write("trip/a.jpg");
  Write("trip/b.jpg");
  Write("none/notes.txt");
  Start(kNeverQuiet);
  EXPECT_TRUE(Says(At("trip") + ": 2 photos made\n"));
  EXPECT_TRUE(Says(At("trip") + ": 2 photos completed\n"));
  EXPECT_THAT(Output(), HasSubstr("watching 3 folders\n"));
  EXPECT_THAT(Runs(), ElementsAre("trip", "trip"));
}

TEST_F(WatchTest, MakesTheThumbnailsOfAPhotoThatArrives) {
  Start();
  AwaitStart();
  Write("photo.jpg");
  EXPECT_TRUE(Says(tree() + ": 1 photo made\n"));
  EXPECT_TRUE(Says(tree() + ": 1 photo completed\n"));
  EXPECT_TRUE(HasThumbnail("", "photo.jpg", "XL.jpg"));
  EXPECT_TRUE(HasThumbnail("", "photo.jpg", "S.jpg"));
  EXPECT_EQ(Runs().size(), 2U);
}

TEST_F(WatchTest, ABurstOfPhotosIsOneRun) {
  Start({"--quiet-period", "1"});
  AwaitStart();
  for (int i = 0; i < 50; ++i)
    Write("camera/" + std::to_string(i) + ".jpg");
  EXPECT_TRUE(Says(At("camera") + ": 50 photos made\n")) << Output();
  EXPECT_TRUE(Says(At("camera") + ": 50 photos completed\n"));
  EXPECT_THAT(Runs(), ElementsAre("camera", "camera"));
}

TEST_F(WatchTest, AChangeDuringARunStartsAnother) {
  Start();
  AwaitStart();
  Hold();
  Write("first.jpg");
  ASSERT_TRUE(Eventually([&] { return Runs().size() == 1; }));
  Write("other/second.jpg");
  Write("second.jpg");
  LetGo();
  EXPECT_TRUE(Eventually([&] { return HasThumbnail("", "second.jpg", "S.jpg"); })) << Output();
  EXPECT_GE(CountOf(Runs(), ""), 2);
}

TEST_F(WatchTest, MakesDeferredKindsWhenIdle) {
  for (const char* name : {"1/a.jpg", "2/a.jpg", "3/a.jpg"})
    Write(name);
  Start();
  ASSERT_TRUE(Eventually([&] { return Runs().size() == 6; }));
  EXPECT_TRUE(Says(At("3") + ": 1 photo completed\n"));
  EXPECT_THAT(Runs(), ElementsAre("1", "2", "3", "1", "2", "3"));
}

TEST_F(WatchTest, RunsAsManyJobsAtATimeAsAskedFor) {
  for (const char* name : {"1/a.jpg", "2/a.jpg", "3/a.jpg"})
    Write(name);
  Hold();
  Start({"--quiet-period", "0.3", "-j", "2"});
  ASSERT_TRUE(Eventually([&] { return Runs().size() == 2; }));
  Write("4/a.jpg");
  LetGo();
  ASSERT_TRUE(Says(At("4") + ": 1 photo completed\n"));
  EXPECT_EQ(Runs().size(), 8U);
}

TEST_F(WatchTest, ReportsAFailedPhotoOnceAndRetriesItWhenItChanges) {
  Write("bad.jpg", "broken");
  Start({"--quiet-period", "0.3", "--rescan", "1"});
  ASSERT_TRUE(Says(tree() + ": 1 photo failed (bad.jpg: ")) << Output();
  Write("good.jpg");
  ASSERT_TRUE(Says("1 photo completed")) << Output();
  EXPECT_EQ(Output().find("bad.jpg"), Output().rfind("bad.jpg")) << Output();
  const std::size_t runs = Runs().size();
  Write("bad.jpg");
  ASSERT_TRUE(Eventually([&] { return HasThumbnail("", "bad.jpg", "S.jpg"); }));
  EXPECT_GT(Runs().size(), runs);
}

TEST_F(WatchTest, RetriesAndReportsAFailedPhotoThatIsTouched) {
  Write("bad.jpg", "broken");
  Start();
  ASSERT_TRUE(Says("bad.jpg"));
  ASSERT_EQ(chmod(At("bad.jpg").c_str(), 0600), 0);
  EXPECT_TRUE(Eventually([&] { return Output().find("bad.jpg") != Output().rfind("bad.jpg"); }))
      << Output();
  EXPECT_EQ(Runs().size(), 2U);
}

TEST_F(WatchTest, RetriesUnfinishedPhotosAtTheNextRescan) {
  Write("odd.jpg", "hopeless");
  Start({"--quiet-period", "0.1", "--rescan", "1"});
  ASSERT_TRUE(Says(tree() + ": 1 photo left undone (odd.jpg: ")) << Output();
  ASSERT_TRUE(Eventually([&] { return Runs().size() == 2; }));
  ASSERT_TRUE(Eventually([&] { return Runs().size() == 3; }));
  EXPECT_EQ(Output().find("odd.jpg"), Output().rfind("odd.jpg")) << Output();
}

TEST_F(WatchTest, DoesNotRetryUnfinishedPhotosForever) {
  Write("1/odd.jpg", "hopeless");
  Start({"--quiet-period", "0"});
  ASSERT_TRUE(Says("left undone")) << Output();
  for (const char* name : {"2/a.jpg", "3/a.jpg"}) {
    Write(name);
    ASSERT_TRUE(Eventually([&] { return HasThumbnail(std::string(name, 1), "a.jpg", "S.jpg"); }));
  }
  EXPECT_EQ(CountOf(Runs(), "1"), 1);
}

TEST_F(WatchTest, RetriesALockedDirectoryLater) {
  Write("a.jpg");
  std::filesystem::create_directory(At("@eaDir"));
  const UniqueFd lock(open(At("@eaDir").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
  Start({"--quiet-period", "0.1", "-v"});
  ASSERT_TRUE(Says(tree() + ": another run is working on it\n")) << Output();
  EXPECT_TRUE(Runs().empty());
  // Closing is not enough: the watch has a copy of the descriptor.
  ASSERT_EQ(flock(lock.get(), LOCK_UN), 0);
  EXPECT_TRUE(Says("1 photo completed")) << Output();
}

TEST_F(WatchTest, WatchesNewAndRenamedDirectories) {
  Start();
  AwaitStart();
  Write("1/2/3/deep.jpg");
  ASSERT_TRUE(Says(At("1/2/3") + ": 1 photo completed\n")) << Output();
  std::filesystem::rename(At("1/2"), At("moved"));
  Write("moved/3/more.jpg");
  EXPECT_TRUE(Says(At("moved/3") + ": 1 photo completed\n")) << Output();
}

TEST_F(WatchTest, AcceptsNamesOfAnyBytes) {
  const std::vector<std::string> names{"new\nline", "sp ace",   "%s",       "[a]*",  "-rf",
                                       "@home",     "\xFF\xFE", "quo'te\"", "$(id)", "R:x"};
  Write(names[0] + "/a.jpg");
  Start();
  AwaitStart();
  for (const std::string& name : names)
    Write(name + "/-weird '\".jpg");
  for (const std::string& name : names) {
    EXPECT_TRUE(Eventually([&] { return HasThumbnail(name, "-weird '\".jpg", "S.jpg"); })) << name;
  }
  EXPECT_THAT(Output(), HasSubstr(At("new\\nline") + ": "));
  EXPECT_THAT(Output(), HasSubstr(At("\\xff\\xfe") + ": "));
}

TEST_F(WatchTest, WaitsForARootThatIsGone) {
  other_tree_ = tree() + "-too";
  std::filesystem::create_directory(other_tree_);
  Start({"--quiet-period", "0.1", "--rescan", "1"});
  AwaitStart();
  std::filesystem::remove_all(tree());
  ASSERT_TRUE(Says(tree() + ": is gone; checking for its return every 1 second\n"));
  Write("late.jpg");
  EXPECT_TRUE(Says(tree() + ": is back\n"));
  EXPECT_TRUE(Says(tree() + ": 1 photo completed\n")) << Output();
}

// The watch is kept from reading until the kernel's queue is full. Then a photo is added for which
// no event is reported.
TEST_F(WatchTest, FindsPhotosWhoseEventsTheKernelDropped) {
  long most_events = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most_events;
  ASSERT_GT(most_events, 0);
  Write("a.txt");
  Write("b.txt");
  Start();
  AwaitStart();
  ASSERT_EQ(kill(pid(), SIGSTOP), 0);
  for (long i = 0; i <= most_events; ++i)
    ASSERT_EQ(chmod(At(i % 2 == 0 ? "a.txt" : "b.txt").c_str(), 0600), 0);
  Write("unreported/new.jpg");
  ASSERT_EQ(kill(pid(), SIGCONT), 0);
  EXPECT_TRUE(Says("checking everything again\n")) << Output();
  EXPECT_TRUE(Says(At("unreported") + ": 1 photo completed\n")) << Output();
}

TEST_F(WatchTest, RevisitsDirectoriesWithoutAWatch) {
  Write("sub/first.jpg");
  OneWatch inotify;
  ThreadedWatch watch(Settings(), inotify);
  ASSERT_TRUE(Eventually([&] { return HasThumbnail("sub", "first.jpg", "S.jpg"); }));
  Write("sub/second.jpg");
  Write("sub/deeper/third.jpg");
  EXPECT_TRUE(Eventually([&] { return HasThumbnail("sub", "second.jpg", "S.jpg"); }));
  EXPECT_TRUE(Eventually([&] { return HasThumbnail("sub/deeper", "third.jpg", "S.jpg"); }));
  const std::string said = watch.Stop();
  EXPECT_THAT(said, HasSubstr("sysctl fs.inotify.max_user_watches="));
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
}

TEST_F(WatchTest, RemovesCompleteDirectoriesFromTheWorkQueue) {
  Write("done/a.jpg");
  Write("odd/a.jpg", "hopeless");
  const WatchSettings settings = Settings();
  std::ofstream(settings.queue_path) << "/elsewhere\n" << At("odd") << "\n" << At("done") << "\n";
  Inotify inotify;
  const ThreadedWatch watch(settings, inotify);
  EXPECT_TRUE(Eventually([&] {
    return TextOfFile(settings.queue_path) == "/elsewhere\n" + At("odd") + "\n";
  })) << TextOfFile(settings.queue_path);
}

TEST_F(WatchTest, PrintsOnlyFailuresWhenQuiet) {
  Write("a.jpg");
  Start({"--quiet-period", "0.1", "-q"});
  ASSERT_TRUE(Eventually([&] { return HasThumbnail("", "a.jpg", "S.jpg"); }));
  Write("b.jpg", "broken");
  ASSERT_TRUE(Says("b.jpg"));
  EXPECT_THAT(Output(), ::testing::StartsWith(tree() + ": 1 photo failed (b.jpg: "));
}

TEST_F(WatchTest, EndsItselfAndItsChildrenOnRequest) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    Write("a" + std::to_string(signal) + ".jpg");
    Hold();
    const std::size_t runs = Runs().size();
    Start();
    ASSERT_TRUE(Eventually([&] { return Runs().size() == runs + 1; }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Stop(signal), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    // A surviving child would continue now.
    LetGo();
    EXPECT_FALSE(HasThumbnail("", "a" + std::to_string(signal) + ".jpg", "XL.jpg"));
  }
}

}  // namespace
}  // namespace keldo::ctl
