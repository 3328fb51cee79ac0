#include "fuzz.h"

#include "frontend/variables.h"

#include <algorithm>
#include <vector>

using namespace fuzzing;

namespace {

/// Beyond this an input only costs time.
constexpr std::size_t growthLimit = std::size_t{1} << 20;

/// The definitions in their order, one for each name.
using Definitions = std::vector<std::pair<std::string, std::string>>;

void define(Definitions& definitions, std::string_view name, std::string_view value) {
    const auto found = std::find_if(definitions.begin(), definitions.end(),
                                    [&](const auto& definition) { return definition.first == name; });
    if (found != definitions.end())
        found->second = value;
    else
        definitions.emplace_back(name, value);
}

/// Replaces one variable after the other; false when the text grows too far.
bool substitute(const Definitions& definitions, std::string& text) {
    for (const auto& [name, value] : definitions) {
        const std::string pattern = "[" + name + "]";
        for (std::size_t at = 0; (at = text.find(pattern, at)) != std::string::npos; at += value.size()) {
            text.replace(at, pattern.size(), value);
            if (text.size() > growthLimit)
                return false;
        }
    }
    return true;
}

} // namespace

/// Each line "name=value" defines a variable; in the others the variables so far are substituted, and held
/// against replacing one after the other.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    secapp::Variables variables;
    Definitions definitions;
    std::string_view rest = textOf(data, size);
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const std::size_t equals = line.find('=');
        if (equals != std::string_view::npos) {
            secapp::addVariable(variables, line.substr(0, equals), line.substr(equals + 1));
            define(definitions, line.substr(0, equals), line.substr(equals + 1));
            continue;
        }
        std::string expected(line);
        if (!substitute(definitions, expected))
            return 0;
        const std::optional<std::string> replaced = secapp::replaceVariables(variables, line);
        require(replaced.has_value(), "a text of moderate size can be substituted");
        require(*replaced == expected, "the substituted text");
    }
    return 0;
}
