#include "kzprotocolresolver_p.h"
#include "support.h"

#include <gtest/gtest.h>

using namespace kztest;
