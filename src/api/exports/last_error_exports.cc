#include "api/frame/last_error.h"
#include "tavu/tavu.h"

uint32_t TAVU_CALL TAVU_GetLastError() {
  return TAVU::api::GetLastErrorCode();
}
