// The sandbox itself: what it hides, what it records, and how it sees a program end. It runs only a
// shell and the stand-ins, so that a failure here is a failure of the harness.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "e2e/fixtures.h"
#include "support/images.h"

namespace keldo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

RunResult RunShell(Sandbox& box, const std::string& script) {
  return box.Run({"/bin/sh", "-c", script});
}

TEST(HarnessTest, ReportsOutputAndExitStatus) {
  Sandbox box;
  const RunResult run = RunShell(box, "echo out; echo err >&2; exit 7");
  EXPECT_EQ(run.exit_status, 7);
  EXPECT_EQ(run.signal, 0);
  EXPECT_EQ(run.standard_output, "out\n");
  EXPECT_EQ(run.standard_error, "err\n");
  EXPECT_THAT(run.survivors, IsEmpty());
}

TEST(HarnessTest, DistinguishesASignalFromAStatus) {
  Sandbox box;
  const RunResult run = RunShell(box, "kill -KILL $$");
  EXPECT_EQ(run.exit_status, -1);
  EXPECT_EQ(run.signal, SIGKILL);
}

TEST(HarnessTest, HidesTheHostAndKeepsItsOwnDirectories) {
  Sandbox box;
  const RunResult run =
      RunShell(box,
               "ls /var/run/ /var/spool /var/packages /tmp; ls /root /work;"
               "echo x > /var/run/a; echo x > /usr/bin/a; set -- /proc/[0-9]*; echo $#");
  EXPECT_THAT(run.standard_output, ::testing::EndsWith("\n2\n")) << "init and sh";
  EXPECT_EQ(box.Read("/var/run/a"), "x\n");
  EXPECT_EQ(box.Read("/run/a"), "x\n");
  EXPECT_EQ(RunShell(box, "cat /var/run/a").standard_output, "x\n");
  EXPECT_THAT(run.standard_error, ::testing::HasSubstr("/usr/bin/a: Read-only file system"));
}

TEST(HarnessTest, HasOnlyTheLoopbackNetwork) {
  Sandbox box;
  EXPECT_EQ(RunShell(box, "tail -n +3 /proc/net/dev | cut -d: -f1 | tr -d ' '").standard_output,
            "lo\n");
}

TEST(HarnessTest, FindsWhatOutlivesTheProgram) {
  Sandbox box;
  const RunResult run = RunShell(box, "setsid sleep 100 & exit 0");
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_THAT(run.survivors, ElementsAre("sleep"));
}

TEST(HarnessTest, ForwardsSignals) {
  Sandbox box;
  Running running(box,
                  {"/bin/sh", "-c", "trap 'exit 5' TERM; touch /tmp/ready; while :; do :; done"});
  while (!box.Exists("/tmp/ready"))
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  running.Signal(SIGTERM);
  EXPECT_EQ(running.Finish().exit_status, 5);
}

TEST(HarnessTest, CollectsTheLog) {
  Sandbox box;
  const RunResult run =
      RunShell(box, "for i in $(seq 60); do logger -p user.err -t keldothumb \"line $i\"; done");
  ASSERT_EQ(run.log.size(), 60U) << "more than a socket's queue holds";
  EXPECT_EQ(run.log[59], (LogLine{3, "line 60"}));
  EXPECT_THAT(RunShell(box, "true").log, IsEmpty());
}

TEST(HarnessTest, ParsesLogPackets) {
  EXPECT_EQ(ParseLogPacket("<11>Nov 21 05:42:10 keldothumb: a:1 b\n"), ErrorLine("a:1 b\n"));
  EXPECT_EQ(ParseLogPacket("<15>Nov  1 05:42:10 keldothumb: x"), (LogLine{7, "x"}));
  EXPECT_EQ(ParseLogPacket("<27>Nov  1 05:42:10 keldothumb: x").priority, -1) << "facility daemon";
  EXPECT_EQ(ParseLogPacket("<11>Nov  1 05:42:10 other: x").priority, -1);
  EXPECT_EQ(ParseLogPacket("<11>keldothumb: x").priority, -1) << "no time";
  EXPECT_EQ(ParseLogPacket("keldothumb: x").priority, -1) << "no code";
}

TEST(HarnessTest, ReplacesTheToolsAndRecordsTheirRuns) {
  Sandbox box;
  box.SetEnvironment("KELDO_CODEC_PKG_NAME", "zun");
  box.Script("dcraw", "stdout bytes\n");
  box.Script("compare", "stderr 12.5 (0.1)\nexit 1\n");
  const RunResult run = RunShell(box,
                                 "cd /tmp; /usr/bin/dcraw -c 'a\n b'; unset KELDO_CODEC_PKG_NAME;"
                                 "/usr/bin/compare; /bin/djpeg -outfile o a; "
                                 "/usr/keldo/bin/convert-thumb -write T1 +delete T2");
  EXPECT_EQ(run.standard_output, "bytes\n");
  EXPECT_EQ(run.standard_error, "12.5 (0.1)\n");
  ASSERT_EQ(run.invocations.size(), 4U);
  EXPECT_THAT(run.invocations[0].arguments, ElementsAre("/usr/bin/dcraw", "-c", "a\n b"));
  EXPECT_EQ(run.invocations[0].program, "dcraw");
  EXPECT_EQ(run.invocations[0].directory, "/tmp");
  EXPECT_EQ(run.invocations[0].codec_package, "zun");
  EXPECT_EQ(run.invocations[1].codec_package, std::nullopt);
  EXPECT_EQ(box.Read("/tmp/o"), "not an image");
  EXPECT_TRUE(DecodeJpeg(box.Read("/tmp/T1")));
  EXPECT_TRUE(DecodeJpeg(box.Read("/tmp/T2")));
}

TEST(HarnessTest, StandInStepsDependOnArguments) {
  Sandbox box;
  box.Script("convert-thumb", "when 800x800\nexit 3\nalways\noutputs jpeg 8x6\n");
  const std::string converter = "/usr/keldo/bin/convert-thumb";
  EXPECT_EQ(box.Run({converter, "-thumbnail", "800x800", "/tmp/a"}).exit_status, 3);
  EXPECT_FALSE(box.Exists("/tmp/a"));
  EXPECT_EQ(box.Run({converter, "-thumbnail", "80x80", "/tmp/a"}).exit_status, 0);
  EXPECT_EQ(DecodeJpeg(box.Read("/tmp/a"))->width, 8);
}

TEST(HarnessTest, MountsMemoryAndKeepsItsContents) {
  Sandbox box;
  box.MountMemory("/volume1/small", 1 << 20);
  const RunResult run =
      RunShell(box, "cd /volume1/small; echo x > a; head -c 2M /dev/zero > b; echo $?; wc -c < b");
  EXPECT_EQ(run.standard_output, "1\n1044480\n");
  EXPECT_EQ(box.Read(Sandbox::KeptDirectory("/volume1/small") + "/a"), "x\n");
}

TEST(HarnessTest, SetsTheTotalMemory) {
  Sandbox box;
  box.SetTotalMemory(4711);
  EXPECT_EQ(RunShell(box, "cat /proc/meminfo").standard_output, "MemTotal:       4711 kB\n");
}

// The program refuses a daemon of another user, so this one must appear to run as ours.
TEST(HarnessTest, DaemonIsTrustedInTheSandbox) {
  Sandbox box;
  box.StartDaemon(AnswerVersion(3));
  const RunResult run = box.Run(
      {"/usr/bin/python3", "-c",
       "import os, socket, struct\n"
       "s = socket.socket(socket.AF_UNIX)\n"
       "s.connect('/tmp/keldoindexplugind_sock')\n"
       "s.send(b'{\"a\":1}\\n')\n"
       "print(s.recv(1000).decode(), end='')\n"
       "peer = struct.unpack('3i', s.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12))\n"
       "print(peer[1] == os.getuid())\n"});
  EXPECT_EQ(run.standard_output, "{\"success\":true,\"version\":3}\nTrue\n") << run.standard_error;
  EXPECT_THAT(run.requests, ElementsAre("{\"a\":1}"));
}

TEST(HarnessTest, CornersIdentifyEveryOrientation) {
  const Image upright = FourCorners(64, 48);
  for (int orientation = 1; orientation <= 8; ++orientation) {
    const Image stored = StoredWith(orientation, upright);
    EXPECT_EQ(stored.width, orientation < 5 ? 64 : 48);
    EXPECT_EQ(CornerDistance(Corners(stored), Corners(upright)) == 0, orientation == 1);
  }
  const CornerColours clockwise = Corners(Rotated(90, upright));
  EXPECT_EQ(clockwise[1], kCornerColours[0]) << "top left goes to top right";
}

TEST(HarnessTest, TruncatedJpegIsRejected) {
  const std::string content = EncodeJpeg(FourCorners(64, 48));
  EXPECT_LE(CornerDistance(Corners(*DecodeJpeg(content)), kCornerColours), 12);
  EXPECT_FALSE(DecodeJpeg(content.substr(0, content.size() - 40)));
  EXPECT_FALSE(DecodeJpeg("x"));
  EXPECT_FALSE(DecodeJpeg(JpegHeaderOf(5000, 4000)));
}

}  // namespace
}  // namespace keldo::testing
