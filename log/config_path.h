#pragma once

// The properties file that the logger is configured by. Internal.
constexpr const char* kLogConfigPath = "/etc/zorv/label/zorv-label-log.properties";
