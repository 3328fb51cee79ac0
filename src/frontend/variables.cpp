#include "frontend/variables.h"

#include <algorithm>
#include <utility>

namespace secapp {
namespace {

std::size_t countOccurrences(std::string_view text, std::string_view pattern) {
    std::size_t found = 0;
    for (std::size_t at = text.find(pattern); at != std::string_view::npos;
         at = text.find(pattern, at + pattern.size()))
        ++found;
    return found;
}

} // namespace

Variables& scriptVariables() {
    static Variables variables;
    return variables;
}

void addVariable(Variables& variables, std::string_view name, std::string_view value) {
    std::string reference("[");
    reference.append(name).append("]");
    const auto found = std::find_if(variables.begin(), variables.end(), [&](const Variable& variable) {
        return variable.reference == reference;
    });
    if (found != variables.end())
        found->value = value;
    else
        variables.push_back({std::move(reference), std::string(value)});
}

std::optional<std::string> replaceVariables(const Variables& variables, std::string_view text) {
    std::string replaced(text);
    for (const auto& [reference, value] : variables) {
        const std::size_t references = countOccurrences(replaced, reference);
        if (references == 0)
            continue;
        if (replaced.size() + references * value.size() > substitutionLimit)
            return std::nullopt;
        replaced = replace_str(replaced, reference, value);
    }
    return replaced;
}

std::string replace_str(std::string_view text, std::string_view pattern, std::string_view value) {
    std::string replaced;
    std::size_t from = 0;
    for (std::size_t at = text.find(pattern); at != std::string_view::npos; at = text.find(pattern, from)) {
        replaced.append(text.substr(from, at - from)).append(value);
        from = at + pattern.size();
    }
    return replaced.append(text.substr(from));
}

Definition splitDefinition(std::string_view text) {
    Definition definition;
    definition.name = nextPiece(text, "=");
    definition.value = nextPiece(text, "=");
    return definition;
}

ErrorText varHandler(HandlerData&, std::string_view text, std::string_view word, const HandlerEntry*) {
    // The command table compares only "var"; the rest of a longer word belongs to the definition.
    constexpr std::size_t matchedLength = 3;
    const auto [name, value] = splitDefinition(trimwhitespace(trimwhitespace(text).substr(matchedLength)));
    if (!name)
        return formatError("No variable specified for %s command", std::string(word).c_str());
    addVariable(scriptVariables(), *name, value.value_or(""));
    return std::nullopt;
}

} // namespace secapp
