/* The peer of the OSC benchmark: a minimal OSC receiver on liblo. One server on a UDP port, one
 * catch-all method that counts every dispatched message and acknowledges every K-th one to the
 * load generator with an 8-byte datagram holding the count (host order).
 *
 *   vexa_bench_loreceiver PORT ACK_PORT [K]
 *
 * Runs until SIGTERM or SIGINT. */
#include <lo/lo.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static volatile sig_atomic_t s_stop = 0;

struct Counter
{
    uint64_t count;
    uint64_t ackEvery;
    int fd;
    struct sockaddr_in ackTo;
};

static void onSignal(int signal)
{
    (void)signal;
    s_stop = 1;
}

static void onError(int number, const char *message, const char *where)
{
    fprintf(stderr, "loreceiver: liblo error %d: %s (%s)\n", number, message, where ? where : "");
}

static int onMessage(const char *path, const char *types, lo_arg **argv, int argc, lo_message message,
                     void *state)
{
    (void)path;
    (void)types;
    (void)argv;
    (void)argc;
    (void)message;
    struct Counter *counter = state;
    if (++counter->count % counter->ackEvery == 0)
        sendto(counter->fd, &counter->count, sizeof(counter->count), 0,
               (const struct sockaddr *)&counter->ackTo, sizeof(counter->ackTo));
    return 0;
}

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: vexa_bench_loreceiver PORT ACK_PORT [K]\n");
        return 2;
    }
    struct Counter counter;
    memset(&counter, 0, sizeof(counter));
    counter.ackEvery = argc > 3 ? (uint64_t)strtoul(argv[3], NULL, 10) : 16;
    if (counter.ackEvery == 0)
        counter.ackEvery = 1;
    counter.fd = socket(AF_INET, SOCK_DGRAM, 0);
    counter.ackTo.sin_family = AF_INET;
    counter.ackTo.sin_port = htons((uint16_t)atoi(argv[2]));
    counter.ackTo.sin_addr.s_addr = htonl(INADDR_LOOPBACK);

    lo_server server = lo_server_new_with_proto(argv[1], LO_UDP, onError);
    if (!server || counter.fd < 0) {
        fprintf(stderr, "loreceiver: cannot listen on UDP port %s\n", argv[1]);
        return 1;
    }
    lo_server_add_method(server, NULL, NULL, onMessage, &counter);

    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = onSignal;
    sigaction(SIGTERM, &action, NULL);
    sigaction(SIGINT, &action, NULL);

    while (!s_stop)
        lo_server_recv_noblock(server, 100);

    fprintf(stderr, "loreceiver: %llu messages dispatched\n", (unsigned long long)counter.count);
    lo_server_free(server);
    close(counter.fd);
    return 0;
}
