"""A desktop computer behind a real router, with the internet beyond that."""

import os
import sys

from desktop import Desktop
from rfb import Viewer
from stage import ROOT

sys.path.insert(0, os.path.join(ROOT, "tests", "lab"))
from lab import OUTSIDE, Lab  # noqa: E402


class RoutedDesktop(Desktop):
    def start_surroundings(self):
        """This machine is the host that they are around."""
        self.lab = Lab(self.build, is_host=True)
        self.lab.__enter__()
        os.chmod(self.lab.folder, 0o711)
        self.lab.start_internet()
        self.lab.start_router()

    def __exit__(self, *error):
        super().__exit__(*error)
        self.lab.__exit__(*error)

    def start_application(self, *options):
        """Where it finds its message bus by itself."""
        env = {name: value for name, value in self.session.items() if name != "DBUS_SYSTEM_BUS_ADDRESS"}
        return self.start_as_user([self.zelvo, "--print-link", *options], {
            **env, "ZELVO_SERVICE": self.lab.service.url,
            "SSL_CERT_FILE": self.lab.path("ca.pem")}, takes_input=True)

    def port_of(self, link):
        """The router's, once that leads here."""
        port = int(self.lab.published(link)["Port"])
        self.lab.wait_until_mapped(port)
        return port

    def viewer(self, link, kind=Viewer):
        """From the internet, before the question."""
        port = self.port_of(link)
        with self.lab.connecting_from("internet"):
            return kind(port, OUTSIDE)

    def leads_here(self, link):
        return int(self.lab.published(link)["availabilityStatus"]) == 0

    def is_taken_back(self, link):
        return not self.leads_here(link) and self.lab.table_is_empty()
