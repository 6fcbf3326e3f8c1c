// qrvhost play: plays a file headless through VLCMediaPlayerQRV.
#include <cstdio>

#include "host/qrvhost.h"

int Play(const std::vector<std::string>&) {
    fprintf(stderr, "qrvhost: play needs the media player class, which this build does not have yet\n");
    return 1;
}
