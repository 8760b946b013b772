#include <ZAVEventRepository/ZAVObject.h>

namespace zav {

std::string ZAVObject::description() const {
    std::string text = "<";
    text += className();
    describeFields(text);
    text += '>';
    return text;
}

void ZAVObject::describeFields(std::string&) const {}

}  // namespace zav
