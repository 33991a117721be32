#include "tools/text/Json.h"

#include "tools/text/Escape.h"

namespace calcut::text {

namespace {

void escapeStrings(Json& tree) {
    if (tree.is_string()) {
        auto& text = tree.get_ref<std::string&>();
        text = escapePath(text);
    } else if (tree.is_structured()) {
        for (Json& element : tree) {
            escapeStrings(element);
        }
    }
}

}  // namespace

std::string jsonText(Json tree, int indent) {
    escapeStrings(tree);
    return tree.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace calcut::text
