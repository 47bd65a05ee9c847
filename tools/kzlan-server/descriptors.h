// How close the process is to its limit of open files, for the accept loop.
#pragma once

/// Descriptors the process has open now (entries of /proc/self/fd); INT_MAX
/// when not even the folder can be opened for want of one; -1 on other errors.
int openDescriptors();

/// The soft limit of open descriptors, or -1 when there is none.
long descriptorLimit();
