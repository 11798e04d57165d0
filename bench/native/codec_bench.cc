// Building, encoding and decoding against two peers, and against memcpy for the attachment. The
// names are STEP/SHAPE/LIBRARY; table.py makes rows of them.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "library_codec.h"

namespace TAVU::bench {
namespace {

struct NamedShape {
  Shape shape;
  const char* name;
};
constexpr NamedShape kShapes[] = {{Shape::kLog, "log"},
                                  {Shape::kAttachment, "attachment"},
                                  {Shape::kNested, "nested"},
                                  {Shape::kNumbers, "numbers"},
                                  {Shape::kNamedNumbers, "named_numbers"}};

void Register(const NamedShape& shape, const char* step, const char* library,
              std::shared_ptr<LibraryCodec> codec, void (LibraryCodec::*work)()) {
  const std::string name = std::string(step) + '/' + shape.name + '/' + library;
  benchmark::RegisterBenchmark(name.c_str(), [codec, work](benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) (codec.get()->*work)();
    state.counters["encoded"] = static_cast<double>(codec->encoded_size());
  });
}

void RegisterLibrary(const NamedShape& shape, const char* library,
                     const std::shared_ptr<LibraryCodec>& codec) {
  Register(shape, "build", library, codec, &LibraryCodec::Build);
  Register(shape, "encode", library, codec, &LibraryCodec::Encode);
  Register(shape, "decode", library, codec, &LibraryCodec::Decode);
}

// The least that encoding or decoding of an attachment can be: its bytes, in a block of their own.
void CopyAttachment(benchmark::State& state, const Bytes& attachment) {
  for ([[maybe_unused]] auto _ : state) {
    void* block = std::malloc(attachment.size());
    std::memcpy(block, attachment.data(), attachment.size());
    benchmark::DoNotOptimize(block);
    benchmark::ClobberMemory();
    std::free(block);
  }
}

[[maybe_unused]] const bool registered = [] {
  static const Shapes shapes;
  for (const NamedShape& shape : kShapes) {
    RegisterLibrary(shape, "lumo", LumoCodec(shapes, shape.shape));
    RegisterLibrary(shape, "msgpack", MsgpackCodec(shapes, shape.shape, Msgpack::kUnpacked));
    RegisterLibrary(shape, "cbor", CborCodec(shapes, shape.shape));
    Register(shape, "decode", "converted", MsgpackCodec(shapes, shape.shape, Msgpack::kConverted),
             &LibraryCodec::Decode);
  }
  benchmark::RegisterBenchmark("copy/attachment/memcpy", [](benchmark::State& state) {
    CopyAttachment(state, shapes.attachment);
  });
  return true;
}();

}  // namespace
}  // namespace TAVU::bench
