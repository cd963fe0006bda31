from typing import Any

class Publisher:
    def publish(self, msg: Any) -> None: ...
