#include "server_p.h"
void Server::attachPlanning(Client*) {}
