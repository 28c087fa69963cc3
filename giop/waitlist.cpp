#include "giop/waitlist.h"

#include <cstdlib>

wait_entry *wait_list = nullptr;

namespace {
deferred_reply_fn reader = nullptr;
}

int wait_list_add(iiop_req *req) {
    auto *e = static_cast<wait_entry *>(std::malloc(sizeof(wait_entry)));
    if (e == nullptr) return 0;
    e->req = req;
    e->next = wait_list;
    wait_list = e;
    return 1;
}

int wait_list_remove(const iiop_req *req) {
    int removed = 0;
    for (wait_entry **link = &wait_list; *link != nullptr;) {
        if ((*link)->req == req) {
            wait_entry *gone = *link;
            *link = gone->next;
            std::free(gone);
            ++removed;
        } else {
            link = &(*link)->next;
        }
    }
    return removed;
}

void set_deferred_reply_reader(deferred_reply_fn r) { reader = r; }
deferred_reply_fn deferred_reply_reader() { return reader; }
