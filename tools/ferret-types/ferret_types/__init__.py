"""Makes <types> documents of what ROS 2 packages and OMG IDL files say about types."""

VERSION = "1.0.0"
