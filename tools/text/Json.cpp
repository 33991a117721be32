#include "tools/text/Json.h"

#include <cmath>

#include "tools/text/Escape.h"

namespace calcut::text {

namespace {

void makePrintable(Json& tree) {
    if (tree.is_string()) {
        auto& text = tree.get_ref<std::string&>();
        text = escapePath(text);
    } else if (tree.is_number_float() && std::isinf(tree.get<float>())) {
        tree = tree.get<float>() < 0 ? "-inf" : "inf";
    } else if (tree.is_structured()) {
        for (Json& element : tree) {
            makePrintable(element);
        }
    }
}

}  // namespace

std::string jsonText(Json tree, int indent) {
    makePrintable(tree);
    return tree.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace calcut::text
