#include "demo.h"

void addMachinesSteps(Demo& demo)
{
    (void)demo;
}
