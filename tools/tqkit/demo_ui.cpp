// tqkit demo: the interface model read from a small interface document.
#include <cstdio>

#include "cli.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/window.h"

namespace {

constexpr const char* kDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0">
  <objects>
    <customObject id="-2" userLabel="File's Owner" customClass="Controller">
      <connections><outlet property="window" destination="w" id="o1"/></connections>
    </customObject>
    <window title="Preferences" id="w">
      <rect key="contentRect" x="100" y="100" width="320" height="120"/>
      <view key="contentView" id="v">
        <rect key="frame" x="0.0" y="0.0" width="320" height="120"/>
        <subviews>
          <button id="b">
            <rect key="frame" x="18" y="70" width="100" height="18"/>
            <buttonCell key="cell" type="check" title="Check for updates automatically" imagePosition="left" id="bc">
              <behavior key="behavior" changeContents="YES" doesNotDimImage="YES" lightByContents="YES"/>
              <font key="font" metaFont="system"/>
            </buttonCell>
          </button>
          <textField id="t">
            <rect key="frame" x="18" y="30" width="284" height="22"/>
            <textFieldCell key="cell" placeholderString="Download folder" id="tc"/>
            <connections>
              <binding destination="-2" name="value" keyPath="self.folder" id="bd">
                <dictionary key="options"><string key="NSNullPlaceholder">None</string></dictionary>
              </binding>
            </connections>
          </textField>
        </subviews>
      </view>
    </window>
  </objects>
</document>)";

void run() {
  auto owner = std::make_shared<tq::GenericObject>(u"Controller");
  tq::NibLoadOptions options;
  options.owner = owner;
  tq::NibReadResult r = tq::readNibData(kDocument, options);
  if (!r) {
    std::printf("read failed: %s\n", r.error().reason.c_str());
    return;
  }
  auto window = std::dynamic_pointer_cast<tq::Window>(r.nib().topLevelObjects().at(0));
  std::printf("readNibData: %zu top-level object(s), %zu objects; window \"%s\"; owner's window outlet %s\n",
              r.nib().topLevelObjects().size(), r.nib().objectCount(), window->title().UTF8String().c_str(),
              owner->outlet(u"window") == window ? "connected" : "missing");
  auto check = std::dynamic_pointer_cast<tq::Button>(window->contentView()->subviews().at(0));
  std::printf("check box \"%s\": isSwitch=%s, width %.0f", check->title().UTF8String().c_str(),
              check->buttonCell()->buttonType() == tq::NSSwitchButton ? "YES" : "NO", check->frame().w);
  check->sizeToFit();
  std::printf(" -> %.0f after sizeToFit\n", check->frame().w);
  auto field = std::dynamic_pointer_cast<tq::TextField>(window->contentView()->subviews().at(1));
  auto binder = field->binderForBinding(u"value");
  std::printf("text field placeholder \"%s\"; binding \"value\" -> %s, null placeholder \"%s\"\n",
              field->placeholderString().UTF8String().c_str(), binder->className().UTF8String().c_str(),
              binder->bindingInfos().at(0)->placeholderForMarker(tq::NSNullMarker).stringValue().UTF8String().c_str());
}

tq::cli::DemoRegistration demo({40, "interface model and archive reader", run});

}  // namespace
