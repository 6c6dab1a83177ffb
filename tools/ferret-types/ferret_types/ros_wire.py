"""What ROS 2 makes of the types of its packages: types that it derives from services and actions, and names on the wire."""

import dataclasses

from .model import Member, Sequence, Struct, TypeUse
from .problems import Place
from .sources import ROS_KINDS

UUID = "unique_identifier_msgs::msg::UUID"
TIME = "builtin_interfaces::msg::Time"
EVENT_INFO = "service_msgs::msg::ServiceEventInfo"


def is_ros_name(name):
    """Whether structures of this name are ROS types: package::msg::Name."""
    parts = name.split("::")
    return len(parts) == 3 and parts[1] in ROS_KINDS


def wire_name(name):
    """package::msg::Name as the middleware announces it."""
    package, kind, message = name.split("::")
    return f"{package}::{kind}::dds_::{message}_"


def derived_from_actions(structures):
    """The requests, responses and messages in which an action sends its goal, result and feedback."""
    for name, goal in structures.items():
        action = name.removesuffix("_Goal")
        result, feedback = (structures.get(action + suffix) for suffix in ("_Result", "_Feedback"))
        if name == action or not result or not feedback or action.split("::")[1] != "action":
            continue
        yield _struct(f"{action}_SendGoal_Request", goal.place, goal_id=UUID, goal=goal.name)
        yield _struct(f"{action}_SendGoal_Response", goal.place, accepted="boolean", stamp=TIME)
        yield _struct(f"{action}_GetResult_Request", goal.place, goal_id=UUID)
        yield _struct(f"{action}_GetResult_Response", goal.place, status="int8", result=result.name)
        yield _struct(f"{action}_FeedbackMessage", goal.place, goal_id=UUID, feedback=feedback.name)


def derived_from_services(structures):
    """The events by which a service tells of its calls."""
    for name, request in structures.items():
        service = name.removesuffix("_Request")
        response = structures.get(f"{service}_Response")
        if name == service or not response or service.split("::")[1] == "msg":
            continue
        event = _struct(f"{service}_Event", request.place, info=EVENT_INFO, request=request.name, response=response.name)
        info, *calls = event.members
        at_most_one = (dataclasses.replace(call, type=TypeUse(call.type.name, collection=Sequence(1))) for call in calls)
        yield dataclasses.replace(event, members=(info, *at_most_one))


def on_the_wire(structure, rename):
    """A ROS structure as it is sent: under the announced name, never without members, and as a final type, since all
    middlewares of ROS send plain CDR."""
    members = structure.members
    if not members and structure.base is None:
        members = (Member("structure_needs_at_least_one_member", TypeUse("uint8"), structure.place),)
    sent = dataclasses.replace(structure, members=members, traits=(("extensibility", "final"),))
    return sent.renamed(wire_name(structure.name), rename)


def _struct(name, place, **members):
    return Struct(name, Place(place.file), tuple(
        Member(member, TypeUse(type_name), Place(place.file)) for member, type_name in members.items()))
