#include "kzprotocolresolver_p.h"

using namespace kz;
