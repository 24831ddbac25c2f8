#include <gtest/gtest.h>
#include <json/value.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "fakes/core_test.h"
#include "platform/ea_dir.h"
#include "platform/file_types.h"
#include "platform/index_ipc.h"
#include "platform/process.h"
#include "platform/system.h"
#include "platform/text.h"
#include "process/isolated.h"
#include "process/output.h"
#include "thumbs/paths.h"
#include "util/termination.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;
using FakeServicesTest = CoreTest;

// ---- Processes ----

TEST_F(FakeServicesTest, RunsAreRecordedAndAnswered) {
  fake().on_run = [&](const Texts& command) {
    WriteFile(In("out.jpg"), "jpeg");
    return command.size() == 5 ? 0 : 1;
  };
  KELDOUtils::ProcessRunner runner("/bin/convert", "convert", "a", nullptr, "lost");
  runner.addArguments("b", "c", nullptr, "lost");
  EXPECT_EQ(runner.run(true, false), 0);
  EXPECT_EQ(fake().runs, (std::vector<Texts>{{"/bin/convert", "convert", "a", "b", "c"}}));
  EXPECT_EQ(fake().calls, (Texts{"ProcessRunner::run(/bin/convert, true, false)"}));
  EXPECT_EQ(ReadFile(In("out.jpg")), "jpeg");
  fake().FailCall("ProcessRunner::run");
  EXPECT_NE(runner.run(true, false), 0);
}

TEST_F(FakeServicesTest, StreamsGiveTheScriptedOutput) {
  fake().on_popen = [](const PopenCall& call) -> std::optional<std::string> {
    if (call.mode != "rE") return std::nullopt;
    return "12.5 (0.1)\nmore\n";
  };
  EXPECT_EQ(KLIBCPopen("/usr/bin/compare", "r", static_cast<char*>(nullptr)), nullptr);
  FILE* stream =
      KLIBCPopen("/usr/bin/compare", "rE", "-metric", "MAE", static_cast<char*>(nullptr));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fake().OpenStreams(), 1u);
  std::array<char, 64> line{};
  EXPECT_STREQ(std::fgets(line.data(), line.size(), stream), "12.5 (0.1)\n");
  EXPECT_EQ(KLIBCPclose(stream), 0);
  EXPECT_EQ(KLIBCPclose(stream), -1);
  ASSERT_EQ(fake().popens.size(), 2u);
  EXPECT_EQ(fake().popens[1].argv, (Texts{"/usr/bin/compare", "-metric", "MAE"}));
}

TEST_F(FakeServicesTest, ReadsStreamsByLines) {
  fake().on_popen = [](const PopenCall&) { return "one\ntwo"; };
  int waits = 0;
  fake().on_wait = [&] { ++waits; };
  FILE* stream = KLIBCPopen("/usr/bin/dcraw", "r", static_cast<char*>(nullptr));
  ASSERT_NE(stream, nullptr);
  process::StreamReader reader(stream);
  EXPECT_EQ(reader.ReadLine(4), "one\n");
  EXPECT_EQ(waits, 1);
  fake().FailCall("WaitForEvents");
  EXPECT_EQ(reader.ReadLine(4), "two");
  EXPECT_EQ(reader.ReadLine(4), std::nullopt);
  EXPECT_EQ(KLIBCPclose(stream), 0);
}

TEST_F(FakeServicesTest, ThePidFileHoldsThisProcess) {
  EXPECT_EQ(KLIBCProcPidFileCreate(paths::kPidFile), 0);
  EXPECT_EQ(fake().ReadLines(paths::kPidFile), (Texts{std::to_string(getpid())}));
}

TEST_F(FakeServicesTest, IsolatedWorkRunsHereAndCanCrash) {
  const auto work = [](std::string& output) {
    output = "made";
    return 3;
  };
  const process::IsolatedResult result = process::RunIsolated(work);
  EXPECT_TRUE(result.finished);
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "made");
  fake().FailCall("RunIsolated");
  EXPECT_FALSE(process::RunIsolated(work).finished);
}

TEST_F(FakeServicesTest, LetsTerminationInWhereTheProgramDoes) {
  int let_in = 0;
  fake().on_let_termination_in = [&] { ++let_in; };
  HoldTermination();
  LetTerminationIn();
  EXPECT_EQ(WaitForEvents({}, 0), 0);
  EXPECT_EQ(let_in, 1);
  EXPECT_EQ(fake().calls,
            (Texts{"HoldTermination()", "LetTerminationIn()", "WaitForEvents(0, 0)"}));
}

// ---- The index and the daemon ----

TEST_F(FakeServicesTest, MasksAnswerByPathAndType) {
  using namespace keldoindexutils::ipc;  // NOLINT(google-build-using-namespace)
  fake().dir_masks = {{{"/v", THUMB_TYPE_PHOTO}, 1}};
  fake().file_masks = {{{"/v/a", THUMB_TYPE_VIDEO}, 2}};
  fake().default_mask = 7;
  int mask = 0;
  EXPECT_EQ(KELDOIDX_GetDirThumbSizeMap("/v", THUMB_TYPE_PHOTO, &mask), 0);
  EXPECT_EQ(mask, 1);
  EXPECT_EQ(KELDOIDX_GetThumbSizeMap("/v/a", THUMB_TYPE_VIDEO, &mask), 0);
  EXPECT_EQ(mask, 2);
  EXPECT_EQ(KELDOIDX_GetThumbSizeMap("/v/a", THUMB_TYPE_PHOTO, &mask), 0);
  EXPECT_EQ(mask, 7);
  fake().FailCall("KELDOIDX_GetThumbSizeMap");
  mask = 9;
  EXPECT_LT(KELDOIDX_GetThumbSizeMap("/v/a", THUMB_TYPE_PHOTO, &mask), 0);
  EXPECT_EQ(mask, 9);
}

TEST_F(FakeServicesTest, PacketsAreRecordedAndReplaced) {
  Json::Value packet(Json::objectValue);
  packet["command"] = "X";
  EXPECT_LT(keldoindexutils::ipc::AutoSendRecvPacket("/s", -1, packet, 1800), 0);
  EXPECT_EQ(packet, Json::Value(Json::objectValue));
  fake().on_packet = [](const Json::Value& request) { return Json::Value(request.size()); };
  packet["command"] = "Y";
  EXPECT_EQ(keldoindexutils::ipc::AutoSendRecvPacket("/s", -1, packet, 1800), 0);
  EXPECT_EQ(packet, Json::Value(1u));
  ASSERT_EQ(fake().packets.size(), 2u);
  EXPECT_EQ(fake().packets[1].value["command"], "Y");
  EXPECT_EQ(fake().packets[1].socket_path, "/s");
  EXPECT_EQ(fake().packets[1].flags, -1);
  EXPECT_EQ(fake().packets[1].timeout_seconds, 1800);
  EXPECT_EQ(fake().calls, (Texts{"AutoSendRecvPacket(X)", "AutoSendRecvPacket(Y)"}));
}

TEST_F(FakeServicesTest, MediaRecordsAndSizesAnswerByPath) {
  keldoindexutils::MediaInfo media;
  EXPECT_EQ(keldoindexutils::ipc::KELDOIDX_GetMediaInfo("/v/a", media), -1);
  Json::Value json(Json::objectValue);
  json["path"] = "/v/a";
  json["resolution_x"] = 40;
  json["resolution_y"] = "text";
  json["frame_bitrate"] = 5;
  media.SetByJson(json);
  media.SetByJson("rubbish");
  fake().media_info["/v/a"] = media;
  keldoindexutils::MediaInfo found;
  EXPECT_EQ(keldoindexutils::ipc::KELDOIDX_GetMediaInfo("/v/a", found), 0);
  EXPECT_EQ(found.path(), "/v/a");
  EXPECT_EQ(found.resolution_x(), 40);
  EXPECT_EQ(found.resolution_y(), 0);
  EXPECT_EQ(found.frame_bitrate(), 5);

  unsigned width = 0;
  unsigned height = 0;
  EXPECT_FALSE(keldoindexutils::KELDOIndexImgResGet("/v/a", width, height));
  fake().image_sizes["/v/a"] = {3, 4};
  EXPECT_TRUE(keldoindexutils::KELDOIndexImgResGet("/v/a", width, height));
  EXPECT_EQ(width, 3u);
  EXPECT_EQ(height, 4u);

  keldoindexutils::ipc::KELDOIDX_IndexConvertAdd(found, media, Json::Value(Json::objectValue));
  ASSERT_EQ(fake().convert_reports.size(), 1u);
  EXPECT_EQ(fake().convert_reports[0].source.path(), "/v/a");
}

// ---- The machine ----

TEST_F(FakeServicesTest, MemoryAndErrorsAnswerAsScripted) {
  long total = -1;
  fake().total_memory_kib = 524287;
  EXPECT_EQ(GetTotalMemory(&total), 0);
  EXPECT_EQ(total, 524287);
  fake().total_memory_kib = std::nullopt;
  EXPECT_NE(GetTotalMemory(&total), 0);
  EXPECT_EQ(total, 524287);
  fake().kept_error = {0x1f, "ea.c", 12};
  EXPECT_EQ(KLIBCErrGet(), 0x1f);
  EXPECT_STREQ(KLIBCErrorGetFile(), "ea.c");
  EXPECT_EQ(KLIBCErrorGetLine(), 12);
}

TEST_F(FakeServicesTest, TheApplicationLogIsInTheLogAndTheCalls) {
  AppLogError(3, "%s:%d text", "keldothumb", 956);
  ExpectOneLog(LOG_ERR, "keldothumb:956 text");
  EXPECT_EQ(fake().calls, (Texts{"AppLogError(3)"}));
}

TEST_F(FakeServicesTest, RecognisesNamesLikeTheRealPlatform) {
  EXPECT_TRUE(keldoindexutils::DoesPhotoOnWebConvertFile("/v/a.JPG"));
  EXPECT_EQ(keldoindexutils::GetFileExtension("/v/IMG.Heic"), "Heic");
}

}  // namespace
}  // namespace keldo::testing
