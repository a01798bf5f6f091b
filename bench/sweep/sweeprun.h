#pragma once

#include "sweepoptions.h"

// One run of the sweep or of the soak: builds the site, drives it, prints the figures (Markdown
// table rows on stdout, progress on stderr). Returns the process exit code: 0 when the manager
// stayed up, bounded and supervising, 1 when it did not, 2 when the site could not be started.
int sweepRun(const SweepOptions &options);
