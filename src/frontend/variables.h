#pragma once

#include "commands/handler.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace secapp {

/// A script variable: its reference "[name]" and its value.
struct Variable {
    std::string reference;
    std::string value;
};

/// Script variables in the order of their definition.
using Variables = std::vector<Variable>;

/// The variables of the run.
[[nodiscard]] Variables& scriptVariables();

/// Defines a variable; one that is already defined keeps its place in the order of substitution.
void addVariable(Variables& variables, std::string_view name, std::string_view value);

/// The text with every [name] of a variable replaced by its value, one variable after the other in the order
/// of their definition, so that a value may refer to variables defined later. Empty when the result would
/// exceed `substitutionLimit` bytes.
[[nodiscard]] std::optional<std::string> replaceVariables(const Variables& variables, std::string_view text);
inline constexpr std::size_t substitutionLimit = std::size_t{64} * 1024 * 1024;

/// The parts of a definition "name=value"; the value ends at a second "=". No name when there are only "="
/// signs.
struct Definition {
    std::optional<std::string_view> name;
    std::optional<std::string_view> value;
};
[[nodiscard]] Definition splitDefinition(std::string_view text);

/// "var name=value".
[[nodiscard]] ErrorText varHandler(HandlerData& record, std::string_view text, std::string_view word,
                                   const HandlerEntry* entry);

/// The text with every occurrence of the pattern replaced, from left to right; inserted values are not
/// searched again.
[[nodiscard]] std::string replace_str(std::string_view text, std::string_view pattern,
                                      std::string_view value);

} // namespace secapp
