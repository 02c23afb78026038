// The plug-in's fixed texts: what it tells the browser about itself and the names of its log.
#ifndef PASSWAY_PLUGIN_PLUGININFO_H
#define PASSWAY_PLUGIN_PLUGININFO_H

#define PLUGIN_NAME "Orvane Passway plugin"
#define PLUGIN_DESCRIPTION PLUGIN_NAME ", Ver. " PLUGIN_VERSION
#define PLUGIN_VERSION "7135.2016.429.1"
#define PLUGIN_MIME_TYPE "application/x-orvane-sslvpn"
#define PLUGIN_MIME_DESCRIPTION PLUGIN_MIME_TYPE ":xvpn:" PLUGIN_NAME

// The NPAPI version the plug-in declares: 0.13.
#define PLUGIN_API_MAJOR 0
#define PLUGIN_API_MINOR 13

// The log: "~/.Orvane/tunvo_plugin.log", module "tunvo_plugin" (its level in the settings file).
#define PLUGIN_LOG_FOLDER "/.Orvane"
#define PLUGIN_LOG_FILE "/tunvo_plugin.log"
#define PLUGIN_LOG_MODULE "tunvo_plugin"

#endif
