#include "e2e/harness.h"
