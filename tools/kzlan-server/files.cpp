#include "server_p.h"
void Server::attachFiles(Client*) {}
