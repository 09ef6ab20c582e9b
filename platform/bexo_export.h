// Export macro for the gateway's shared libraries. Both libraries are built
// with hidden visibility; only declarations marked BEXO_EXPORT are visible to
// the daemons that load them.
#pragma once

#define BEXO_EXPORT __attribute__((visibility("default")))
