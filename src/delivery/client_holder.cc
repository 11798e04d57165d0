#include "delivery/client_holder.h"

#include "lumo/allocator.h"

namespace TAVU::delivery {

ClientHolder::ClientHolder() : client_(QTC::CreateQtcClient().release()) {
  if (client_ == nullptr) throw lumo::BadAllocation();
}

}  // namespace TAVU::delivery
