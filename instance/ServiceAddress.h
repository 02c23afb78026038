// Where the local VPN service listens: the plug-in asks for these URLs, and passway-host carries them.
#ifndef PASSWAY_INSTANCE_SERVICEADDRESS_H
#define PASSWAY_INSTANCE_SERVICEADDRESS_H

#define TUNVO_SERVICE_HOST "127.0.0.1"
#define TUNVO_SERVICE_PORT 44444
#define TUNVO_SERVICE_ORIGIN "http://127.0.0.1:44444"
#define TUNVO_SERVICE_URL TUNVO_SERVICE_ORIGIN "/vpn.php"

#endif
