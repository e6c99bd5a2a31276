// Meta font sizes of the platform.
#include "tq/platform/ui/model/font_descriptor.h"

#include <string_view>

namespace tq {

String FontDescriptor::systemFamilyName() {
  static const String name = u"System";
  return name;
}

FontDescriptor FontDescriptor::systemFont(double size) {
  static const String system = u"system";
  return FontDescriptor{systemFamilyName(), size, false, system};
}

FontDescriptor FontDescriptor::fromMetaFont(const String& metaFont, double size) {
  struct Entry {
    std::u16string_view name;
    double size;
    bool bold;
  };
  static constexpr Entry kMetaFonts[] = {
      {u"system", 13, false},        {u"systemBold", 13, true},     {u"smallSystem", 11, false},
      {u"smallSystemBold", 11, true}, {u"miniSystem", 9, false},     {u"miniSystemBold", 9, true},
      {u"label", 10, false},         {u"menu", 14, false},          {u"menuBar", 14, false},
      {u"toolTip", 11, false},       {u"message", 13, false},       {u"titleBar", 13, true},
      {u"palette", 11, false},       {u"user", 12, false},          {u"userFixedPitch", 10, false},
      {u"controlContent", 13, false}, {u"cellTitle", 12, false},
  };
  FontDescriptor font;
  font.metaFont = metaFont;
  font.size = 13;
  for (const Entry& e : kMetaFonts) {
    if (metaFont.view() == e.name) {
      font.size = e.size;
      font.bold = e.bold;
      break;
    }
  }
  if (metaFont.view() == u"userFixedPitch") font.name = u"Monospace";
  if (size > 0) font.size = size;
  return font;
}

}  // namespace tq
