// The container of catalogue, buffers and pools: a standard list, so that elements keep their addresses while it grows.
#ifndef WQZ_LIST_CONTAINER_H
#define WQZ_LIST_CONTAINER_H

#include <list>

#endif  // WQZ_LIST_CONTAINER_H
