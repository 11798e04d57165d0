#include "delivery/client_holder.h"

#include "base/allocator.h"

namespace TAVU::delivery {

ClientHolder::ClientHolder() : client_(QTC::CreateQtcClient().release()) {
  if (client_ == nullptr) throw base::BadAllocation();
}

}  // namespace TAVU::delivery
