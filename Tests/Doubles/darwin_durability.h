#ifndef TESTS_DOUBLES_DARWIN_DURABILITY_H_
#define TESTS_DOUBLES_DARWIN_DURABILITY_H_

// The calls of a Mac by which Platform/apple/Durability.cpp syncs, for a compiler of another
// system.

#define F_FULLFSYNC 51
#define SYNC_VOLUME_FULLSYNC 1
#define SYNC_VOLUME_WAIT 2

int sync_volume_np(const char* path, int flags);

#endif  // TESTS_DOUBLES_DARWIN_DURABILITY_H_
