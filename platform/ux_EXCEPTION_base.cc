#include "ux_EXCEPTION_base.h"

// Out of line, so the type has one home (and one typeinfo) in libbexoplatform.
ux_EXCEPTION_base::~ux_EXCEPTION_base() = default;
