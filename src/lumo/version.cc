#include "lumo/version.h"

namespace TAVU::lumo {

const VersionBanner tavu_lumo_version_banner = {
    .version = "1.6.4",
    .version_line = "lumo Version: %s\n",
    .revision_line = "lumo Revision: %d\n",
    .build_date_line = "lumo Build Date: %s\n",
};

}  // namespace TAVU::lumo
