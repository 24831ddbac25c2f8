#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "process/output.h"
#include "support/temp_dir.h"

namespace {

// start NAME: a process of this command name in the background; its id in $!.
// ended ID: prints how it ended (137: SIGKILL, 143: SIGTERM). alive ID: prints "alive" or "dead".
constexpr const char* kFunctions = R"sh(
  start() {
    cp /bin/sleep "$1"
    "./$1" 1000 &
    until [ "$(cat /proc/$!/comm)" != bash ]; do sleep 0.01; done
  }
  ended() { wait $1; echo $?; }
  alive() { if kill -0 $1; then echo alive; else echo dead; fi; }
)sh";

class KillTest : public testing::Test {
 protected:
  // What a script prints that runs with a process table of its own, $KILL being our helper. It must
  // not see the machine's processes: it kills by name.
  [[nodiscard]] std::string InNamespace(const std::string& script) const {
    const std::string whole =
        "exec 2>/dev/null; cd \"$1\"; KILL=$2\n" + std::string(kFunctions) + script;
    return keldo::process::RunForOutput(
               "/usr/bin/bwrap",
               {"--unshare-pid", "--die-with-parent", "--dev-bind", "/", "/", "--proc", "/proc",
                "/bin/bash", "-c", whole, "bash", dir_.path(), KELDO_KILL_TEST_HELPER},
               std::chrono::minutes(5))
        .text;
  }

 private:
  keldo::testing::TempDir dir_;
};

TEST_F(KillTest, KillsEveryProcessOfThatNameAndNoOther) {
  EXPECT_EQ(InNamespace(R"sh(
    start convert-thumb; a=$!
    start convert-thumb2; other=$!
    start convert; shorter=$!
    start Convert-thumb; capital=$!
    ./convert-thumb 1000 & b=$!
    until [ "$(cat /proc/$b/comm)" = convert-thumb ]; do sleep 0.01; done
    $KILL convert-thumb 0
    ended $a; ended $b; alive $other; alive $shorter; alive $capital
  )sh"),
            "2\n137\n137\nalive\nalive\nalive\n");
}

TEST_F(KillTest, SendsTheGivenSignal) {
  EXPECT_EQ(InNamespace("start convert-thumb; a=$!; $KILL convert-thumb 15; ended $a"), "1\n143\n");
}

TEST_F(KillTest, ComparesAtTheKernelsLengthOf15Bytes) {
  EXPECT_EQ(InNamespace(R"sh(
    start convert-thumbna; a=$!
    start convert-thumbnail; b=$!
    start convert-thumbn; shorter=$!
    $KILL convert-thumbnails 0
    ended $a; ended $b; alive $shorter
  )sh"),
            "2\n137\n137\nalive\n");
}

TEST_F(KillTest, NamesAreBytes) {
  EXPECT_EQ(InNamespace(R"sh(
    name=$'a\nb) \xff('
    start "$name"; a=$!
    $KILL "$name" 0
    ended $a
  )sh"),
            "1\n137\n");
}

TEST_F(KillTest, KillsNoProcessOfAnotherName) {
  EXPECT_EQ(InNamespace("start convert-thumb; a=$!; $KILL missing 0; alive $a"), "0\nalive\n");
}

TEST_F(KillTest, AnEmptyNameMatchesNoProcess) {
  EXPECT_EQ(InNamespace(R"sh(
    bash -c 'printf "\0" >/proc/$$/comm; sleep 1000 & echo >ready; wait' & a=$!
    until [ -s ready ]; do sleep 0.01; done
    $KILL '' 0
    alive $a
  )sh"),
            "0\nalive\n");
}

TEST_F(KillTest, NeverKillsItself) {
  EXPECT_EQ(InNamespace(R"sh(
    mkdir d; cd d; start convert-thumb; a=$!; cd ..
    cp "$KILL" convert-thumb
    ./convert-thumb convert-thumb 0; echo status $?
    ended $a
  )sh"),
            "1\nstatus 0\n137\n");
}

// A name such as "x) 1 (y" must not mislead the reading of a process's parent.
TEST_F(KillTest, KillsTheWholeGroupOfOurOwnChild) {
  for (const std::string name : {"convert-thumb", "x) 1 (y"}) {
    EXPECT_EQ(InNamespace("name='" + name + "'\n" + R"sh(
      cp /bin/bash "$name"
      $KILL "$name" 0 "./$name" '
        sleep 1000 &
        until grep -qx sleep /proc/$!/comm; do :; done
        echo $!; wait'
    )sh"),
              "1\ngone\n");
  }
}

TEST_F(KillTest, SparesTheGroupOfAnyOtherProcess) {
  EXPECT_EQ(InNamespace(R"sh(
    cp /bin/bash convert-thumb
    setsid ./convert-thumb -c 'sleep 1000 &
      until grep -qx sleep /proc/$!/comm; do :; done; echo $! >pid; wait' &
    leader=$!
    until [ -s pid ]; do sleep 0.01; done
    $KILL convert-thumb 0
    ended $leader; alive $(cat pid)
  )sh"),
            "1\n137\nalive\n");
}

}  // namespace
