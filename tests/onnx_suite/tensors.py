"""Tensors of the test cases: what a protobuf file holds, as values and as dense bytes."""
from dataclasses import dataclass

import numpy
import onnx
from onnx import TensorProto, numpy_helper

BFLOAT16 = TensorProto.BFLOAT16

# ONNX's element types that a dense input or output can have here.
SERVED = {
    TensorProto.FLOAT: numpy.dtype(numpy.float32),
    TensorProto.UINT8: numpy.dtype(numpy.uint8),
    TensorProto.INT8: numpy.dtype(numpy.int8),
    TensorProto.UINT16: numpy.dtype(numpy.uint16),
    TensorProto.INT16: numpy.dtype(numpy.int16),
    TensorProto.INT32: numpy.dtype(numpy.int32),
    TensorProto.INT64: numpy.dtype(numpy.int64),
    TensorProto.BOOL: numpy.dtype(numpy.bool_),
    TensorProto.FLOAT16: numpy.dtype(numpy.float16),
    TensorProto.DOUBLE: numpy.dtype(numpy.float64),
    TensorProto.UINT32: numpy.dtype(numpy.uint32),
    TensorProto.UINT64: numpy.dtype(numpy.uint64),
    BFLOAT16: numpy.dtype(numpy.uint16),  # its bits
}

# What the others are called.
NOT_SERVED = {8: "string", 14: "complex64", 15: "complex128", 17: "float8", 18: "float8",
              19: "float8", 20: "float8", 21: "uint4", 22: "int4", 23: "float4"}


@dataclass(frozen=True)
class Tensor:
    """An array of `element`, ONNX's number of the type; for bfloat16 an array of the bits."""
    name: str
    element: int
    array: numpy.ndarray

    @property
    def shape(self):
        return list(self.array.shape)

    def values(self):
        """The values as they compare: bfloat16 as the float32 of the same value."""
        if self.element == BFLOAT16:
            bits = self.array.astype(numpy.uint32) << 16
            return bits.view(numpy.float32).reshape(self.array.shape)
        return self.array

    def to_bytes(self):
        """Dense, row after row, in this machine's byte order."""
        return numpy.ascontiguousarray(self.array).tobytes()


def from_bytes(name, element, shape, content):
    """The tensor whose dense bytes these are."""
    return Tensor(name, element, numpy.frombuffer(content, SERVED[element]).reshape(shape))


def read_tensor(path, value):
    """The tensor in a file that holds a single TensorProto, for an input or output `value`.

    Files of bfloat16 have the type uint16 or bfloat16 and the bits either way.
    """
    proto = TensorProto()
    proto.ParseFromString(path.read_bytes())
    element = value.type.tensor_type.elem_type
    if element != proto.data_type and (element, proto.data_type) != (BFLOAT16, TensorProto.UINT16):
        raise ValueError(f"{path}: the type is {proto.data_type} and not {element}, as declared")
    if proto.data_type == BFLOAT16:
        proto.data_type = TensorProto.UINT16
    return Tensor(value.name, element, numpy_helper.to_array(proto).astype(SERVED[element]))


def declared_shape(value):
    """The dimensions that a model declares, None for an open one; None without any shape."""
    tensor = value.type.tensor_type
    if not tensor.HasField("shape"):
        return None
    return [dim.dim_value if dim.HasField("dim_value") else None for dim in tensor.shape.dim]


def without_shapes(model):
    """Opens every dimension of the inputs and takes the shapes of the outputs away, in place."""
    own_values = {tensor.name for tensor in model.graph.initializer}
    for value in model.graph.input:
        if value.name not in own_values:
            for dim in value.type.tensor_type.shape.dim:
                dim.Clear()
    for value in model.graph.output:
        value.type.tensor_type.ClearField("shape")
    del model.graph.value_info[:]
    return model


def why_not_dense(value):
    """What kind of value this is if it is no dense tensor of a served type, else None."""
    kind = value.type.WhichOneof("value")
    if kind != "tensor_type":
        return str(kind).removesuffix("_type")
    element = value.type.tensor_type.elem_type
    return None if element in SERVED else NOT_SERVED.get(element, f"type {element}")


def load_model(path):
    """The model's protobuf, unchecked: its operators may be newer than Python's onnx."""
    return onnx.load_model(str(path), load_external_data=False)
