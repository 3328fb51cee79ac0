#include "frontend/variables.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace secapp {
namespace {

std::size_t count(std::string_view text, std::string_view pattern) {
    std::size_t found = 0;
    for (std::size_t at = text.find(pattern); at != std::string_view::npos;
         at = text.find(pattern, at + pattern.size()))
        ++found;
    return found;
}

/// The first variable, in order and from `from` on, that the text refers to; the number of variables when it
/// refers to none. Looks the references up instead of trying every variable, unless the text holds more pairs
/// of brackets than there are variables.
std::size_t nextReferenced(const Variables& variables, std::string_view text, std::size_t from) {
    const auto& inOrder = variables.inOrder;
    if (std::uint64_t{count(text, "[")} * count(text, "]") > inOrder.size()) {
        const auto found = std::find_if(
            inOrder.begin() + static_cast<std::ptrdiff_t>(from), inOrder.end(),
            [&](const auto& variable) { return text.find(variable.pattern) != std::string_view::npos; });
        return static_cast<std::size_t>(found - inOrder.begin());
    }
    std::size_t first = inOrder.size();
    for (std::size_t open = text.find('['); open != std::string_view::npos; open = text.find('[', open + 1)) {
        for (std::size_t close = text.find(']', open); close != std::string_view::npos;
             close = text.find(']', close + 1)) {
            const auto place = variables.places.find(std::string(text.substr(open, close - open + 1)));
            if (place != variables.places.end() && place->second >= from)
                first = std::min(first, place->second);
        }
    }
    return first;
}

} // namespace

Variables& scriptVariables() {
    static Variables variables;
    return variables;
}

void addVariable(Variables& variables, std::string_view name, std::string_view value) {
    std::string pattern("[");
    pattern.append(name).append("]");
    const auto [place, isNew] = variables.places.emplace(pattern, variables.inOrder.size());
    if (isNew)
        variables.inOrder.push_back({std::move(pattern), std::string(value)});
    else
        variables.inOrder[place->second].value = value;
}

std::optional<std::string> replaceVariables(const Variables& variables, std::string_view text) {
    std::string replaced(text);
    for (std::size_t place = nextReferenced(variables, replaced, 0); place < variables.inOrder.size();
         place = nextReferenced(variables, replaced, place + 1)) {
        const auto& [pattern, value] = variables.inOrder[place];
        if (replaced.size() + count(replaced, pattern) * value.size() > substitutionLimit)
            return std::nullopt;
        replaced = replace_str(replaced, pattern, value);
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
    constexpr std::size_t matchedLength = 3;
    const auto [name, value] = splitDefinition(trimwhitespace(trimwhitespace(text).substr(matchedLength)));
    if (!name)
        return formatError("No variable specified for %s command", std::string(word).c_str());
    addVariable(scriptVariables(), *name, value.value_or(""));
    return std::nullopt;
}

} // namespace secapp
