#include "media/libav_messages.h"

#include <cstdarg>
#include <cstdio>

extern "C" {
#include <libavutil/log.h>
}

namespace framehold {

namespace {

thread_local std::string lastMessage;

void keep(void*, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_ERROR) return;
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    lastMessage = text;
    lastMessage.erase(lastMessage.find_last_not_of(". \r\n") + 1);
}

}  // namespace

void keepLibavMessages() { av_log_set_callback(keep); }

void forgetLibavMessage() { lastMessage.clear(); }

std::string libavMessage() { return lastMessage.empty() ? "" : " (" + lastMessage + ")"; }

}  // namespace framehold
