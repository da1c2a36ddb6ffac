// Rules and devices in the private root's kernel.
#pragma once

// Takes back what an earlier test of the same process left: policy rules, route tables, bridge and mangle
// rules, devices that were added. Does nothing in a fresh private root.
void reset_kernel_rules();
