#include "server_p.h"
void Server::attachLogs(Client*) {}
