#include "fresh_variables.h"

// Stands in for that room: the tool keeps its variables as long as it runs, a fuzzer begins every input
// without any.
#include "frontend/variables.cpp"

namespace secapp {

void forgetVariables() {
    variables.clear();
    places.clear();
}

} // namespace secapp
