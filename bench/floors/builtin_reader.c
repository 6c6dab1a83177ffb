/* The floor for discovery: a reader of Cyclone DDS's builtin topic of publications that prints one line for each. */

#include <dds/dds.h>
#include <signal.h>
#include <stdio.h>

static volatile sig_atomic_t ended;

static void end(int number) {
    (void)number;
    ended = 1;
}

int main(void) {
    signal(SIGINT, end);
    const dds_entity_t participant = dds_create_participant(DDS_DOMAIN_DEFAULT, NULL, NULL);
    const dds_entity_t reader = dds_create_reader(participant, DDS_BUILTIN_TOPIC_DCPSPUBLICATION, NULL, NULL);
    const dds_entity_t waitset = dds_create_waitset(participant);
    if (participant < 0 || reader < 0 || waitset < 0)
        return 1;
    dds_set_status_mask(reader, DDS_DATA_AVAILABLE_STATUS);
    dds_waitset_attach(waitset, reader, 0);
    while (!ended) {
        if (dds_waitset_wait(waitset, NULL, 0, DDS_MSECS(100)) <= 0)
            continue;
        void* samples[100] = {NULL};
        dds_sample_info_t info[100];
        int32_t taken;
        while ((taken = dds_take(reader, samples, info, 100, 100)) > 0) {
            for (int32_t i = 0; i < taken; ++i) {
                const dds_builtintopic_endpoint_t* endpoint = samples[i];
                if (info[i].valid_data)
                    printf("New writer topic=\"%s\" type=\"%s\"\n", endpoint->topic_name, endpoint->type_name);
            }
            dds_return_loan(reader, samples, taken);
        }
        fflush(stdout);
    }
    dds_delete(participant);
    return 0;
}
