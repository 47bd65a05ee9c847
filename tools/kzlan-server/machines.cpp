#include "server_p.h"
void Server::attachMachines(Client*) {}
