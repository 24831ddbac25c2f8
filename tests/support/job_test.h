// The fixture for tests of the thumbnail job: a directory of photos with thumbnails, a converter
// that writes its outputs, and a daemon that replies.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "fakes/converter.h"
#include "fakes/core_test.h"
#include "fakes/fake_libraw.h"
#include "fakes/profiles.h"
#include "thumbs/paths.h"
#include "thumbs/thumb_profile.h"

namespace keldo::testing {

class JobTest : public CoreTest {
 protected:
  using Texts = std::vector<std::string>;

  /// The default modification times of photos and thumbnails.
  static constexpr time_t kPhotoTime = 5000;
  static constexpr time_t kThumbTime = 6000;

  void SetUp() override {
    CoreTest::SetUp();
    fake_libraw() = {};
    LoadProfiles(profiles_, profile_path_);
    fake().on_run = [this](const Command& command) {
      return failing_boxes_.count(ArgumentOf(command, "-thumbnail")) != 0 ? 1
                                                                          : WriteOutputs(command);
    };
    fake().on_packet = [this](const Json::Value& /*request*/) {
      Json::Value reply(Json::objectValue);
      reply["success"] = true;
      reply["version"] = index_version_;
      return reply;
    };
  }

  /// Creates a photo that the index can measure.
  std::string Photo(const std::string& name) {
    const std::string path = WriteFile(job_.path + "/" + name, "photo");
    SetTime(path, kPhotoTime);
    fake().image_sizes[path] = {4000, 3000};
    fake().image_sizes[Thumb(name, "XL")] = {1280, 960};
    return path;
  }

  /// The photo's metadata directory.
  [[nodiscard]] std::string Ea(const std::string& photo_name) const {
    return job_.path + "/@eaDir/" + photo_name;
  }
  /// The path of a thumbnail ("XL"), and of its failure marker.
  [[nodiscard]] std::string Thumb(const std::string& photo_name, const std::string& kind) const {
    return Ea(photo_name) + "/KELDOPHOTO_THUMB_" + kind + ".jpg";
  }
  [[nodiscard]] std::string Marker(const std::string& photo_name, const std::string& kind) const {
    return Ea(photo_name) + "/KELDOPHOTO_THUMB_" + kind + ".fail";
  }

  /// Creates existing thumbnails of these kinds.
  void MakeThumbs(const std::string& photo_name, const Texts& kinds) const {
    for (const std::string& kind : kinds)
      SetTime(WriteFile(Thumb(photo_name, kind), "existing"), kThumbTime);
  }

  /// The kinds that have a thumbnail, and those that have a failure marker.
  [[nodiscard]] Texts Made(const std::string& photo_name) const {
    return KindsWith([&](const std::string& kind) { return Exists(Thumb(photo_name, kind)); });
  }
  [[nodiscard]] Texts Marked(const std::string& photo_name) const {
    return KindsWith([&](const std::string& kind) { return Exists(Marker(photo_name, kind)); });
  }

  /// The requests to the daemon, as "GET_INDEX_VERSION /v/a.jpg".
  [[nodiscard]] static Texts Packets() {
    Texts packets;
    for (const PacketRequest& packet : fake().packets) {
      packets.push_back(packet.value["command"].asString() + " " + packet.value["path"].asString());
    }
    return packets;
  }

  /// The lines of the photo progress file, and of the thumbnail queue.
  [[nodiscard]] static Texts Progress() { return fake().ReadLines(paths::kPhotoProgress); }
  [[nodiscard]] static Texts Queue() { return fake().ReadLines(paths::kThumbQueue); }

  /// The directories for which a profile list was loaded, in order.
  [[nodiscard]] static Texts Processed() {
    Texts directories;
    for (const std::string& call : fake().CallsOf({"KELDOIDX_GetDirThumbSizeMap"})) {
      const std::size_t begin = call.find('(') + 1;
      directories.push_back(call.substr(begin, call.rfind(',') - begin));
    }
    return directories;
  }

  /// The box of the largest thumbnail of every converter run, as "1280x1280>^".
  [[nodiscard]] static Texts LargestBoxes() {
    Texts boxes;
    for (const Command& command : fake().runs)
      boxes.push_back(ArgumentOf(command, "-thumbnail"));
    return boxes;
  }

  ThumbProfileList profiles_;
  const std::string profile_path_ = In("thumb.conf");
  const ThumbJob job_{MakeDir(In("photos")), &profiles_};
  /// The converter fails if its largest thumbnail has one of these boxes.
  std::set<std::string> failing_boxes_;
  int index_version_ = 0;

 private:
  template <typename Test>
  static Texts KindsWith(const Test& test) {
    Texts found;
    for (const char* kind : {"XL", "B", "M", "L", "SM", "S"}) {
      if (test(std::string(kind))) found.emplace_back(kind);
    }
    return found;
  }
};

}  // namespace keldo::testing
