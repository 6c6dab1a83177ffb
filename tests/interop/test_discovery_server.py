#!/usr/bin/env python3
"""Applications of Fast DDS that know each other through a discovery server, and speak to no other participant by themselves."""

import harness

PORT = 11811


class DiscoveryServer(harness.InteropTest):
    def server(self):
        server = self.fastdds()
        server.do(f"participant server={PORT} name=server")
        return server

    def client(self, *endpoints):
        client = self.fastdds()
        client.do(f"participant client={PORT} lease=3")
        for endpoint in endpoints:
            client.do(endpoint)
        return client

    def spy_through_server(self, *options):
        return self.spy("-peer", f"127.0.0.1:{PORT}", "-showSampleIdentity", *options, mode=None)

    def test_what_the_server_knows(self):
        """Endpoints that were there before and that come later, their ends, and the data of a writer without readers."""
        self.server()
        early = self.client("writer w topic=Early type=keyed", "reader r topic=Wanted type=keyed")
        spy = self.spy_through_server()
        spy.wait_for_event("New writer", topic="Early")
        spy.wait_for_event("New reader", topic="Wanted")
        late = self.client("writer w topic=Late type=keyed")
        spy.wait_for_event("New writer", topic="Late")
        for client, topic in ((early, "Early"), (late, "Late")):
            client.do("matched w")
            client.do("write w count=10")
            spy.wait_for_samples(10, topic=topic)
            self.assertEqual([sample.number for sample in spy.samples(topic=topic)], list(range(1, 11)))
        late.do("delete w")
        spy.wait_for_event("Deleted writer", topic="Late")
        early.quit()
        spy.wait_for_event("Deleted reader", topic="Wanted")
        spy.wait_for_event("Deleted writer", topic="Early")
        self.end(spy)

    def test_the_server_goes_away(self):
        """Data of what is known goes on; nothing is told twice when the server is back."""
        server = self.server()
        client = self.client("writer w topic=T type=keyed")
        spy = self.spy_through_server()
        spy.wait_for_event("New writer", topic="T")
        client.do("matched w")
        server.kill()
        client.do("write w count=3")
        spy.wait_for_samples(3, topic="T")
        self.server()
        client.do("write w count=3")
        spy.wait_for_samples(6, topic="T")
        self.end(spy)
        self.assertEqual(len(spy.events), 1, spy.story())

    def test_the_server_comes_back(self):
        """Whichever way it went, and however soon: those that come later are seen, and nothing is told twice."""
        server = self.server()
        first = self.client("writer w topic=First type=keyed", "reader r topic=Wanted type=keyed")
        spy = self.spy_through_server()
        spy.wait_for_event("New writer", topic="First")
        spy.wait_for_event("New reader", topic="Wanted")
        for life, leave in enumerate((server.kill, lambda: server.quit(), lambda: server.kill())):
            leave()
            server = self.server()
            client = self.client(f"writer w topic=Later{life} type=keyed")
            spy.wait_for_event("New writer", topic=f"Later{life}")
            client.do("matched w")
            client.do("write w count=3")
            spy.wait_for_samples(3, topic=f"Later{life}")
        first.do("matched w")
        first.do("write w count=3")
        spy.wait_for_samples(3, topic="First")
        self.end(spy)
        self.assertEqual(len(spy.events), 5, spy.story())

    def test_one_that_dies_without_the_server(self):
        """Those that the server told of are there as long as they answer."""
        server = self.server()
        mortal = self.client("writer w topic=Mortal type=keyed")
        survivor = self.client("writer w topic=Survivor type=keyed")
        spy = self.spy_through_server()
        spy.wait_for_event("New writer", topic="Mortal")
        spy.wait_for_event("New writer", topic="Survivor")
        survivor.do("matched w")  # from now on it needs no server to be read
        server.quit()
        mortal.kill()
        spy.wait_for_event("Deleted writer", topic="Mortal", limit=60)
        survivor.do("write w count=3")
        spy.wait_for_samples(3, topic="Survivor")
        self.end(spy)
        self.assertEqual(len(spy.events), 3, spy.story())

    def test_a_client_that_is_killed(self):
        self.server()
        client = self.client("writer w topic=T type=keyed")
        spy = self.spy_through_server()
        spy.wait_for_event("New writer", topic="T")
        client.kill()
        spy.wait_for_event("Deleted writer", topic="T")
        self.end(spy)


if __name__ == "__main__":
    harness.main()
