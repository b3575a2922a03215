/* libapi_c algorithm library: the whole public interface of the in-process algorithms. */
#ifndef LIBALGO_H
#define LIBALGO_H

#include "zk_export.h"

#endif /* LIBALGO_H */
