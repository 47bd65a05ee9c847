#include "demo.h"

void addAccountsSteps(Demo& demo)
{
    (void)demo;
}
