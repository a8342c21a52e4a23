#include "ctr/Executor.h"

namespace ctr {

// Out of line, so the class has one home for its type information.
Executor::~Executor() = default;

}  // namespace ctr
