#include "tools/text/Json.h"

namespace calcut::text {

std::string jsonText(const Json& tree, int indent) {
    return tree.dump(indent, ' ', false, Json::error_handler_t::replace);
}

Json parseJson(const std::vector<std::uint8_t>& text) {
    return Json::parse(text, nullptr, false);
}

}  // namespace calcut::text
