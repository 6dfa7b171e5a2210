#pragma once

// Prints the label-change messages of a topic (null: all) as they arrive. Ends, always
// with exit status 1, when the subscription is refused, a receive fails or nothing more
// can be printed.
int printLabelChanges(const char* topic);
