// What jemalloc reads before `main`: it asks the system for large pages for all memory that it
// hands out, and keeps what is given back for what is asked for next. The first touch of a page has
// its price, and so has a page that the processor does not know by heart; a block of 10,000 images
// takes 900,000 small pages. Without `oversize_threshold:0` large arrays go back to the system at
// once, and the next ones are touched first again.

extern "C" {
__attribute__((visibility("default"))) const char* malloc_conf =
    "thp:always,oversize_threshold:0,dirty_decay_ms:-1";
}
