#pragma once
// varnolt-cli ports: the port names the application layer's map knows, their devices, and
// whether each can be opened now.
namespace PortsCommand {
int run();
}
