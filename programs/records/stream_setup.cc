#include "stream_setup.h"

#include <string>
#include <vector>

#include "failure.h"
#include "object_layout.h"

namespace TAVU::records {
namespace {

using collector::Receive;

constexpr double kNanosecondsOfDay = 24.0 * 3600 * 1e9;

void MakeStream(jsCtx* jet_stream, const Options& options, const std::string& name,
                const std::vector<std::string>& subjects, bool bucket) {
  std::vector<const char*> pointers;
  pointers.reserve(subjects.size());
  for (const std::string& subject : subjects) pointers.push_back(subject.c_str());
  jsStreamConfig config;
  Require(jsStreamConfig_Init(&config), name);
  config.Name = name.c_str();
  config.Subjects = pointers.data();
  config.SubjectsLen = static_cast<int>(pointers.size());
  config.Replicas = options.replicas;
  config.MaxBytes = options.max_bytes;
  config.MaxAge = static_cast<std::int64_t>(options.max_age_days * kNanosecondsOfDay);
  config.Discard = js_DiscardNew;  // a sender is told; nothing that was acknowledged goes for it
  config.AllowRollup = bucket;
  config.AllowDirect = bucket;
  collector::NatsStreamInfo info;
  Require(Receive(info,
                  [&](jsStreamInfo** out) {
                    return js_AddStream(out, jet_stream, &config, nullptr, nullptr);
                  }),
          "making the stream " + name);
}

}  // namespace

void MakeStreamAndBucket(jsCtx* jet_stream, const Options& options) {
  const std::string& name = options.stream;
  MakeStream(jet_stream, options, name, {name + ".>"}, false);
  MakeStream(jet_stream, options, collector::BucketStream(name), collector::BucketSubjects(name),
             true);
}

}  // namespace TAVU::records
