#include "stream_reader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "failure.h"

namespace TAVU::records {
namespace {

using collector::NatsMessage;
using collector::Receive;

constexpr int kBatch = 256;
constexpr std::int64_t kFetchTime = 1000;  // milliseconds
constexpr std::int64_t kFlushTime = 5000;

// After which a record that is printed nowhere comes again, in nanoseconds. A batch of large
// attachments must fit in.
constexpr std::int64_t kAcknowledgeTime = std::int64_t{5 * 60} * 1000000000;

using ConsumerInfo =
    std::unique_ptr<jsConsumerInfo, collector::NatsDestroy<jsConsumerInfo_Destroy>>;

// A pipe or a terminal cannot be synced.
void FlushOutput() {
  if (std::fflush(stdout) != 0) FailBySystem("the output");
  struct stat facts = {};
  if (::fstat(STDOUT_FILENO, &facts) == 0 && S_ISREG(facts.st_mode) &&
      ::fdatasync(STDOUT_FILENO) != 0) {
    FailBySystem("the output");
  }
}

void Complain(const std::string& text) {
  std::fprintf(stderr, "tavu_records: %s\n", text.c_str());
}

std::string_view LineOf(const natsMsg* message) {
  return {natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message))};
}

}  // namespace

StreamReader::StreamReader(natsConnection* connection, jsCtx* jet_stream, const Options& options)
    : connection_(connection),
      jet_stream_(jet_stream),
      stream_(options.stream),
      durable_(options.durable),
      follow_(options.follow) {
  const std::string filter = options.filter.empty() ? options.stream + ".>" : options.filter;
  jsSubOptions settings;
  jsSubOptions_Init(&settings);
  settings.Stream = options.stream.c_str();
  settings.Config.AckWait = kAcknowledgeTime;
  Require(Receive(subscription_,
                  [&](natsSubscription** out) {
                    return js_PullSubscribe(out, jet_stream, filter.c_str(),
                                            options.durable.c_str(), nullptr, &settings, nullptr);
                  }),
          "the stream " + options.stream);
  if (!options.attachments.empty()) {
    attachments_.emplace(jet_stream, options.stream, options.attachments);
  }
}

void StreamReader::Run() {
  for (;;) {
    const Batch batch = FetchBatch();
    if (batch.empty()) {
      if (!follow_ && IsAtEnd()) return;
      continue;
    }
    for (const NatsMessage& message : batch) Print(LineOf(message.get()));
    FlushOutput();
    Acknowledge(batch);
  }
}

StreamReader::Batch StreamReader::FetchBatch() {
  natsMsgList list = {};
  const natsStatus status =
      natsSubscription_Fetch(&list, subscription_.get(), kBatch, kFetchTime, nullptr);
  Batch batch;
  for (int i = 0; i < list.Count; ++i) {
    batch.emplace_back(list.Msgs[i]);
    list.Msgs[i] = nullptr;
  }
  natsMsgList_Destroy(&list);
  // Between two leaders nobody answers; it goes on with the next one.
  if (status != NATS_TIMEOUT && status != NATS_NO_RESPONDERS) Require(status, "reading");
  return batch;
}

bool StreamReader::IsAtEnd() {
  ConsumerInfo info;
  Require(Receive(info,
                  [&](jsConsumerInfo** out) {
                    return js_GetConsumerInfo(out, jet_stream_, stream_.c_str(), durable_.c_str(),
                                              nullptr, nullptr);
                  }),
          "asking how much is left");
  if (info->NumPending > 0) return false;
  if (info->NumAckPending > 0) {
    Complain(std::to_string(info->NumAckPending) +
             " records are with another reader; those of one that was killed come again in five "
             "minutes");
  }
  return true;
}

void StreamReader::Print(std::string_view line) {
  if (line.find('\n') != std::string_view::npos) return Complain("a message that is no line");
  if (attachments_ && line.find("_file\":{") != std::string_view::npos) FetchAttachments(line);
  if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size() || std::putchar('\n') < 0) {
    FailBySystem("the output");
  }
}

void StreamReader::FetchAttachments(std::string_view line) {
  const nlohmann::json record = nlohmann::json::parse(line, nullptr, false);
  if (!record.is_object()) return;
  for (const auto& [key, value] : record.items()) {
    if (!key.ends_with("_file") || !value.is_object() || !value.contains("name")) continue;
    const auto name = value.at("name").get<std::string>();
    const std::string problem = attachments_->Fetch(name, value.at("sha256").get<std::string>());
    if (problem.empty()) continue;
    incomplete_ = true;
    Complain(std::string("the attachment ").append(name).append(": ").append(problem));
  }
}

void StreamReader::Acknowledge(const Batch& batch) {
  for (const NatsMessage& message : batch) {
    Require(natsMsg_Ack(message.get(), nullptr), "acknowledging");
  }
  Require(natsConnection_FlushTimeout(connection_, kFlushTime), "acknowledging");
}

}  // namespace TAVU::records
