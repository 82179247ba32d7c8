#pragma once

#include <gst/gst.h>

namespace framehold {

/// Answers what sizes the input may have: the output's, or larger ones.
void answerInputCaps(GstPad* src, GstPad* sink, GstQuery* query);

/// Answers what sizes the output may have: the input's, or smaller ones.
void answerOutputCaps(GstPad* sink, GstPad* src, GstQuery* query);

/// Answers how frames may lie that come in: anywhere. False for caps that are no video.
bool answerAllocation(GstQuery* query);

}  // namespace framehold
