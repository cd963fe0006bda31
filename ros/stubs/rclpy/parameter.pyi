from typing import Any

class Parameter:
    @property
    def value(self) -> Any: ...
