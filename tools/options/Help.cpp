#include "tools/options/Help.h"

#include <string_view>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

namespace calcut::options {

namespace {

constexpr std::size_t helpWidth = 100;
constexpr std::size_t optionWidth = 30;

class Formatter final : public CLI::Formatter {
  public:
    explicit Formatter(const Help& help) : help_(help) { column_width(optionWidth); }

    std::string make_usage(const CLI::App* /*app*/, std::string name) const override {
        std::string lines;
        const std::string_view forms = help_.usage;
        for (std::size_t start = 0; start < forms.size();) {
            const std::size_t end = std::min(forms.find('\n', start), forms.size());
            lines += fmt::format("{} {} {}\n", lines.empty() ? "Usage:" : "   or:", name,
                                 forms.substr(start, end - start));
            start = end + 1;
        }
        return lines;
    }

    std::string make_option_desc(const CLI::Option* option) const override {
        constexpr std::size_t room = helpWidth - optionWidth;
        std::string text = option->get_description();
        for (std::size_t start = 0; text.size() - start > room;) {
            const std::size_t space = text.rfind(' ', start + room);
            text[space] = '\n';
            start = space + 1;
        }
        return text;
    }

  private:
    const Help& help_;
};

}  // namespace

std::shared_ptr<CLI::FormatterBase> formatterFor(const Help& help) {
    return std::make_shared<Formatter>(help);
}

}  // namespace calcut::options
