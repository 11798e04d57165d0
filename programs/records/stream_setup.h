// Makes the stream and the bucket that collectors publish into.
#pragma once

#include "nats_handles.h"
#include "options.h"

namespace TAVU::records {

// What is there already stays, if it is the same; throws Failure otherwise.
void MakeStreamAndBucket(jsCtx* jet_stream, const Options& options);

}  // namespace TAVU::records
