#include "crash/document/crash_scene.h"

#include <utility>

#include "crash/attempt.h"

namespace TAVU::crash {

void AppendElements(XmlNode& parent, const CrashScene& scene,
                    std::initializer_list<ElementBuilder> builders) {
  for (const ElementBuilder build : builders) {
    Attempt([&] {
      if (std::unique_ptr<XmlNode> element = build(scene)) parent.AddChild(std::move(element));
    });
  }
}

}  // namespace TAVU::crash
